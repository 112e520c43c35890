// The pieces every vorn-host subcommand uses: the loaded plug-in, its replies, the subcommand's
// words and the output. Each group of subcommands lives in a file of its own and registers itself
// with a static registerCommand call.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include "AnswerWatch.h"
#include "Words.h"
#include "core/DataBlock.h"

namespace vornhost {

using cli::UsageError;
// The subcommand's words after the subcommand name.
using Args = cli::Words;

// Owns one reply block and its payload and frees both with free(), as the host does.
class Reply
{
public:
    explicit Reply(DataBlock* block = nullptr) : m_block(block) {}
    ~Reply();
    Reply(Reply&& other) noexcept : m_block(other.m_block) { other.m_block = nullptr; }
    Reply(Reply const&) = delete;
    Reply& operator=(Reply const&) = delete;

    bool empty() const { return m_block == nullptr; } // the plug-in gave no reply block
    int32_t replyCode() const { return m_block ? m_block->command : 0; }
    unsigned char const* payload() const { return m_block ? m_block->data : nullptr; }
    // The status word; a missing payload reads as the generic failure.
    int32_t status() const;
    // The payload read as a record of the command's documented layout.
    template <class T> T record() const
    {
        T value;
        memcpy(&value, payload(), sizeof value);
        return value;
    }

private:
    DataBlock* m_block;
};

// The plug-in, loaded with dlopen and initialised with VORN_init.
class Plugin
{
public:
    explicit Plugin(std::string const& path); // throws std::runtime_error with the loader's text
    ~Plugin();
    Plugin(Plugin const&) = delete;
    Plugin& operator=(Plugin const&) = delete;

    // Sends one request the way the host does: a zeroed block with the id and the payload. A request
    // still unanswered after a second says on standard error what it waits for.
    Reply call(int id, void const* payload);
    std::string const& path() const { return m_path; }

private:
    std::string m_path;
    void* m_library = nullptr;
    void* m_handle = nullptr;
    DataBlock* (*m_handleCall)(void*, DataBlock*) = nullptr;
    AnswerWatch m_watch;
};

// Named fields of one reply, printed as "name: value" lines or as one JSON object (--json).
class Output
{
public:
    explicit Output(bool json) : m_json(json) {}

    void field(QString const& name, QJsonValue const& value);
    void reply(Reply const& reply); // reply code and status by name, or "no reply"
    void note(QString const& line); // free text, shown in text mode only
    // One line per field and the notes after them; with --json one object, on one line when compact
    // (a session's replies).
    void print(bool compact = false) const;
    bool json() const { return m_json; }
    QJsonValue value(QString const& name) const { return m_fields.value(name); }
    // The fields as one object, with the notes under "notes" when there are any (the workbench's
    // answers).
    QJsonObject object() const;

private:
    bool m_json;
    QStringList m_order;
    QJsonObject m_fields;
    QStringList m_notes;
};

struct Command
{
    char const* name;
    char const* summary; // one line for the command list
    char const* usage;   // the words after "vorn-host"
    char const* example; // a complete command line
    // Exit code: 0 when the reply reports success, 1 when it reports a failure or no reply came.
    int (*run)(Plugin& plugin, Output& out, Args& args);
    // Set for a command that needs no plug-in (and so no Redis): run is then not used.
    int (*offline)(Output& out, Args& args) = nullptr;
};

bool registerCommand(Command const& command);
std::vector<Command> const& commands();
Command const* findCommand(std::string const& name);

std::string statusName(int32_t status);
int exitCodeFor(Reply const& reply);
QString hexDump(unsigned char const* data, size_t size);
// Whether a Unix socket takes a connection (a server listens there); `why` says why not.
bool socketAccepts(std::string const& path, std::string& why);

} // namespace vornhost
