// Frame files as the frame folder holds them, whatever wrote them: read by an observing and by a
// consuming client, every item the index names read to its last byte.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "TempDir.h"
#include "resultsync/FrameClient.h"
#include "resultsync/FrameFormat.h"

using namespace orv::resultsync;

namespace {

volatile unsigned int g_sink; // keeps the reads below from being optimised away

// Every byte of every item the index names (a read outside the mapping ends the run).
unsigned int readAll(Frame& frame, std::string const& file)
{
    unsigned int sum = 0;
    FrameFormat::Header header;
    std::unique_ptr<FILE, int (*)(FILE*)> in(fopen(file.c_str(), "rb"), fclose);
    if (!in || fread(&header, sizeof header, 1, in.get()) != 1)
        return 0;
    for (uint32_t i = 0; i < header.itemCount && i < 64; ++i) {
        FrameFormat::IndexEntry entry;
        if (fread(&entry, sizeof entry, 1, in.get()) != 1)
            break;
        entry.key[sizeof entry.key - 1] = '\0';
        uint32_t size = 0;
        auto const* bytes = static_cast<unsigned char const*>(frame.getData(entry.key, &size));
        for (uint32_t b = 0; bytes != nullptr && b < size; ++b)
            sum += bytes[b];
    }
    return sum + static_cast<unsigned int>(frame.getId().size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static orv::test::TempDir* folder = new orv::test::TempDir("kv-fuzz-frames");
    std::string const name = folder->file("frame-00000000000000000001-1.kvf");
    std::unique_ptr<FILE, int (*)(FILE*)> out(fopen(name.c_str(), "wb"), fclose);
    fwrite(data, 1, size, out.get());
    out.reset();
    for (bool consume : {false, true}) {
        FrameClient client(consume, folder->path());
        if (std::unique_ptr<Frame> frame = client.waitForFrame(0))
            g_sink = readAll(*frame, consume ? folder->file("taken-00000000000000000001-1.kvf") : name);
    }
    remove(name.c_str());
    return 0;
}
