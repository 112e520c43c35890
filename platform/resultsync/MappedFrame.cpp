#include "resultsync/MappedFrame.h"

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "resultsync/FrameFormat.h"

namespace orv {
namespace resultsync {
namespace {

FrameFormat::Header const* header(void const* base)
{
    return static_cast<FrameFormat::Header const*>(base);
}

FrameFormat::IndexEntry const* index(void const* base)
{
    return reinterpret_cast<FrameFormat::IndexEntry const*>(static_cast<char const*>(base) +
                                                            sizeof(FrameFormat::Header));
}

} // namespace

std::unique_ptr<MappedFrame> MappedFrame::open(std::string const& path, bool removeOnDelete)
{
    int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    std::unique_ptr<MappedFrame> frame = open(fd, path, removeOnDelete);
    if (frame) {
        close(frame->m_fd); // nothing to hold: the mapping stays without it
        frame->m_fd = -1;
    }
    return frame;
}

std::unique_ptr<MappedFrame> MappedFrame::open(int fd, std::string const& path, bool removeOnDelete)
{
    struct stat info;
    void* base = MAP_FAILED;
    if (fstat(fd, &info) == 0 && info.st_size >= static_cast<off_t>(sizeof(FrameFormat::Header)))
        base = mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ, MAP_SHARED, fd, 0);
    if (base == MAP_FAILED) {
        close(fd);
        return nullptr;
    }
    std::unique_ptr<MappedFrame> frame(
        new MappedFrame(path, base, static_cast<size_t>(info.st_size), removeOnDelete, fd));
    if (!frame->isSound())
        return nullptr;
    return frame;
}

MappedFrame::MappedFrame(std::string path, void* base, size_t length, bool removeOnDelete, int fd)
    : m_path(std::move(path)), m_base(base), m_length(length), m_removeOnDelete(removeOnDelete), m_fd(fd)
{}

MappedFrame::~MappedFrame()
{
    munmap(m_base, m_length);
    if (m_removeOnDelete)
        unlink(m_path.c_str());
    if (m_fd >= 0)
        close(m_fd); // gives the claim up only after the file is gone
}

bool MappedFrame::isSound() const
{
    FrameFormat::Header const* h = header(m_base);
    if (memcmp(h->magic, FrameFormat::Magic, sizeof h->magic) != 0 || h->version != FrameFormat::Version)
        return false;
    if (memchr(h->id, '\0', sizeof h->id) == nullptr)
        return false;
    uint64_t const indexEnd =
        sizeof(FrameFormat::Header) + uint64_t(h->itemCount) * sizeof(FrameFormat::IndexEntry);
    if (indexEnd > m_length)
        return false;
    for (uint32_t i = 0; i < h->itemCount; ++i) {
        FrameFormat::IndexEntry const& e = index(m_base)[i];
        if (memchr(e.key, '\0', sizeof e.key) == nullptr || uint64_t(e.offset) + e.size > m_length)
            return false;
    }
    return true;
}

void const* MappedFrame::getData(std::string const& key, uint32_t* size)
{
    FrameFormat::Header const* h = header(m_base);
    for (uint32_t i = 0; i < h->itemCount; ++i) {
        FrameFormat::IndexEntry const& e = index(m_base)[i];
        if (key == e.key) {
            if (size != nullptr)
                *size = e.size;
            return static_cast<char const*>(m_base) + e.offset;
        }
    }
    if (size != nullptr)
        *size = 0;
    return nullptr;
}

std::string MappedFrame::getId()
{
    return header(m_base)->id;
}

} // namespace resultsync
} // namespace orv
