// A frame file mapped read-only; unmaps it on deletion and, for a consuming client, removes it.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "resultsync/Frame.h"

namespace orv {
namespace resultsync {

class MappedFrame : public Frame
{
public:
    // Null when the file cannot be mapped or its index is not sound.
    static std::unique_ptr<MappedFrame> open(std::string const& path, bool removeOnDelete);
    // The same for a file already open as `fd` (a claimed frame, locked by its claimant): the frame
    // keeps the descriptor, and with it the lock, until it is deleted. Closes fd on failure.
    static std::unique_ptr<MappedFrame> open(int fd, std::string const& path, bool removeOnDelete);
    ~MappedFrame() override;

    void const* getData(std::string const& key, uint32_t* size) override;
    std::string getId() override;

private:
    MappedFrame(std::string path, void* base, size_t length, bool removeOnDelete, int fd);
    bool isSound() const;

    std::string m_path;
    void* m_base;
    size_t m_length;
    bool m_removeOnDelete;
    int m_fd; // held open (with its lock) by a claimant; -1 otherwise
};

} // namespace resultsync
} // namespace orv
