#include "resultsync/FramePublisher.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include "core/Paths.h"
#include "resultsync/FrameDirectory.h"
#include "resultsync/FrameFormat.h"
#include "resultsync/FrameName.h"

namespace orv {
namespace resultsync {
namespace {

uint32_t aligned(uint64_t offset)
{
    uint64_t const a = FrameFormat::DataAlignment;
    return static_cast<uint32_t>((offset + a - 1) / a * a);
}

bool writeAll(int fd, void const* data, size_t size, off_t offset)
{
    auto const* p = static_cast<char const*>(data);
    while (size > 0) {
        ssize_t n = pwrite(fd, p, size, offset);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        size -= static_cast<size_t>(n);
        offset += n;
    }
    return true;
}

} // namespace

FramePublisher::FramePublisher(unsigned int maxFrames, std::string directory)
    : m_directory(directory.empty() ? Paths::frameDir() : std::move(directory)),
      m_maxFrames(maxFrames == 0 ? 1 : maxFrames)
{
    if (!FrameDirectory::ensure(m_directory))
        fprintf(stderr, "FramePublisher: cannot create %s: %s\n", m_directory.c_str(), strerror(errno));
    // Frames left by an earlier publisher stay older than ours, so readers keep the order.
    for (char const* prefix : {FrameFormat::FramePrefix, FrameFormat::TakenPrefix}) {
        auto const files = FrameDirectory::list(m_directory, prefix);
        if (!files.empty() && files.back().sequence >= m_nextSequence)
            m_nextSequence = files.back().sequence + 1;
    }
}

bool FramePublisher::publish(std::string const& id, std::vector<Item> const& items)
{
    if (id.empty() || id.size() > FrameFormat::MaxIdLength || id.find('/') != std::string::npos) {
        fprintf(stderr, "FramePublisher: unusable result id '%s'\n", id.c_str());
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    uint64_t const sequence = m_nextSequence++;
    std::string const temporary =
        m_directory + "/.writing-" + std::to_string(getpid()) + "-" + std::to_string(sequence);
    if (!writeFile(temporary, sequence, id, items)) {
        unlink(temporary.c_str());
        return false;
    }
    std::string const final = m_directory + "/" + FrameName::published(sequence, id);
    if (rename(temporary.c_str(), final.c_str()) != 0) {
        fprintf(stderr, "FramePublisher: rename to %s: %s\n", final.c_str(), strerror(errno));
        unlink(temporary.c_str());
        return false;
    }
    dropOldest();
    return true;
}

bool FramePublisher::writeFile(std::string const& path, uint64_t sequence, std::string const& id,
                               std::vector<Item> const& items)
{
    FrameFormat::Header header;
    memset(&header, 0, sizeof header);
    memcpy(header.magic, FrameFormat::Magic, sizeof header.magic);
    header.version = FrameFormat::Version;
    header.itemCount = static_cast<uint32_t>(items.size());
    header.sequence = sequence;
    memcpy(header.id, id.data(), id.size());

    std::vector<FrameFormat::IndexEntry> index(items.size());
    uint64_t offset = aligned(sizeof header + index.size() * sizeof(FrameFormat::IndexEntry));
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i].key.empty() || items[i].key.size() > FrameFormat::MaxKeyLength) {
            fprintf(stderr, "FramePublisher: unusable data key '%s'\n", items[i].key.c_str());
            return false;
        }
        memset(&index[i], 0, sizeof index[i]);
        memcpy(index[i].key, items[i].key.data(), items[i].key.size());
        index[i].offset = static_cast<uint32_t>(offset);
        index[i].size = items[i].size;
        offset = aligned(offset + items[i].size);
        if (offset > UINT32_MAX) {
            fprintf(stderr, "FramePublisher: frame larger than 4 GiB\n");
            return false;
        }
    }

    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        fprintf(stderr, "FramePublisher: open %s: %s\n", path.c_str(), strerror(errno));
        return false;
    }
    bool ok = writeAll(fd, &header, sizeof header, 0) &&
              writeAll(fd, index.data(), index.size() * sizeof(FrameFormat::IndexEntry), sizeof header);
    for (size_t i = 0; ok && i < items.size(); ++i)
        ok = writeAll(fd, items[i].data, items[i].size, index[i].offset);
    if (ok)
        ok = ftruncate(fd, static_cast<off_t>(offset)) == 0;
    if (!ok)
        fprintf(stderr, "FramePublisher: write %s: %s\n", path.c_str(), strerror(errno));
    close(fd);
    return ok;
}

void FramePublisher::dropOldest()
{
    auto const files = FrameDirectory::reclaimAndList(m_directory, FrameFormat::FramePrefix);
    for (size_t i = 0; i + m_maxFrames < files.size(); ++i)
        unlink((m_directory + "/" + files[i].name).c_str());
}

void FramePublisher::removeAll()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (char const* prefix : {FrameFormat::FramePrefix, FrameFormat::TakenPrefix})
        for (auto const& file : FrameDirectory::list(m_directory, prefix))
            unlink((m_directory + "/" + file.name).c_str());
    if (DIR* dir = opendir(m_directory.c_str())) {
        std::string const writing = ".writing-";
        while (dirent* entry = readdir(dir)) {
            if (std::string(entry->d_name).compare(0, writing.size(), writing) == 0)
                unlinkat(dirfd(dir), entry->d_name, 0);
        }
        closedir(dir);
    }
}

} // namespace resultsync
} // namespace orv
