// The simulated camera: publishes results like a camera's processing side (on demand or at a fixed
// rate) until SIGTERM, then removes everything it made. `camsim --help` tells how.
//
// It also serves the camera's device services on the system bus (DBUS_SYSTEM_BUS_ADDRESS): a
// trigger publishes one result; --apps sets the number of applications, --fault makes a method
// misbehave (FaultCatalog.h). Without a bus it runs without them.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <pthread.h>
#include <string>
#include <utility>
#include <vector>

#include "CamDBusServices.h"
#include "FaultCatalog.h"
#include "FrameProducer.h"
#include "ToolMain.h"
#include "Words.h"

namespace {

struct Options
{
    camsim::FrameProducerOptions producer;
    double rate = 0;
    unsigned int burst = 0;
    int applications = 3;
    std::vector<std::pair<std::string, camsim::Fault>> faults;
};

void printHelp()
{
    printf("usage: camsim [OPTIONS]\n\n"
           "The simulated camera: publishes results like the camera's processing side (frame files,\n"
           "the Redis hash \"result_ID\", ROI masks) and serves the device services com.orv.imager,\n"
           "com.orv.quillon and com.orv.iom on the system bus (DBUS_SYSTEM_BUS_ADDRESS) until SIGTERM,\n"
           "then removes what it made. It prints \"ready\" once it serves; SIGUSR1 publishes one result\n"
           "and prints \"published ID\". ORV_FRAME_DIR, ORV_IMAGER_RUN_DIR and ORV_REDIS_CACHE_SOCKET\n"
           "point it at other folders and sockets.\n\n"
           "options:\n");
    std::pair<char const*, char const*> const options[] = {
        {"--rate HZ", "publish HZ results a second (default 0: on trigger or SIGUSR1 only)"},
        {"--size WxH", "image size, 176x132 (default) or 224x172"},
        {"--ring N", "frames kept in the frame directory (default 8)"},
        {"--burst N", "publish N results at the start"},
        {"--apps N", "applications the services list (default 3)"},
        {"--rois LIST", "ROIs per model: 4,5,0 gives three models with 4, 5 and 0 ROIs (default 4,5)"},
        {"--fault METHOD=KIND[:VALUE]", "make a device method misbehave; may be given more than once"},
        {"--help", "this help"},
        {"--version", "the version of this tool"},
    };
    for (auto const& [spelling, help] : options) {
        // A long spelling stands on a line of its own, its text below in the column of the others.
        bool const own = strlen(spelling) > 16;
        printf("  %-16s%s%s\n", spelling, own ? "\n                   " : " ", help);
    }
    printf("\nfault methods (METHOD):\n");
    for (camsim::FaultCatalog::Entry const& method : camsim::FaultCatalog::methods())
        printf("  %-20s %s\n", method.name, method.what);
    printf("\nfault kinds (KIND[:VALUE]):\n");
    for (camsim::FaultCatalog::Kind const& kind : camsim::FaultCatalog::kinds())
        printf("  %-20s %s\n", camsim::FaultCatalog::spelling(kind).c_str(), kind.what);
    printf("\nA fault can be changed while camsim runs: the call camsimSetFault(METHOD, KIND[:VALUE]) of\n"
           "com.orv.imager at \"/\" takes the same words. At most %d models of %d ROIs each.\n\n"
           "example:\n  camsim --rois 4,5,0 --fault vornTrigger=slow:1500 &\n",
           camsim::RoiLayout::MaxModels, camsim::RoiLayout::MaxRois);
}

double rate(std::string const& text)
{
    char* end = nullptr;
    errno = 0;
    double const hz = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !(hz >= 0 && hz <= 1000))
        throw cli::UsageError("--rate must be a number of results a second from 0 to 1000, not \"" + text +
                              "\"");
    return hz;
}

Options parse(cli::Words& words)
{
    Options options;
    if (auto text = words.option("--rate"))
        options.rate = rate(*text);
    if (auto size = words.option("--size")) {
        if (*size != "176x132" && *size != "224x172")
            throw cli::UsageError("--size is 176x132 or 224x172, not \"" + *size + "\"");
        options.producer.width = *size == "176x132" ? 176 : 224;
        options.producer.height = *size == "176x132" ? 132 : 172;
    }
    if (auto ring = words.number("--ring", 1, 100000))
        options.producer.ringSize = static_cast<unsigned int>(*ring);
    if (auto burst = words.number("--burst", 0, 1000000))
        options.burst = static_cast<unsigned int>(*burst);
    if (auto applications = words.number("--apps", 0, 1000))
        options.applications = static_cast<int>(*applications);
    if (auto rois = words.option("--rois")) {
        std::string const wrong = camsim::RoiLayout::parse(*rois, options.producer.roisPerModel);
        if (!wrong.empty())
            throw cli::UsageError("--rois " + *rois + ": " + wrong);
    }
    for (std::string const& text : words.options("--fault")) {
        std::pair<std::string, camsim::Fault> fault;
        std::string const wrong = camsim::FaultCatalog::parse(text, fault.first, fault.second);
        if (!wrong.empty())
            throw cli::UsageError("--fault " + text + ": " + wrong);
        options.faults.push_back(fault);
    }
    words.expectCount(0, 0);
    return options;
}

} // namespace

int main(int argc, char** argv)
{
    cli::Words words(std::vector<std::string>(argv + 1, argv + argc));
    Options options;
    if (auto const end =
            cli::ToolMain::startPlain("camsim", words, printHelp, [&] { options = parse(words); }))
        return *end;
    // Signals are taken by the main thread alone, synchronously; every thread started later
    // inherits the mask.
    sigset_t signals;
    sigemptyset(&signals);
    for (int s : {SIGTERM, SIGINT, SIGUSR1})
        sigaddset(&signals, s);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A Redis that goes away must not end the camera: writes to its closed socket fail instead.
    signal(SIGPIPE, SIG_IGN);

    try {
        camsim::FrameProducer producer(options.producer);
        for (unsigned int i = 0; i < options.burst; ++i)
            producer.produce();
        producer.startFreeRunning(options.rate);

        // The device services; a trigger publishes one result, counted in the statistics.
        camsim::CamDBusServices services;
        services.setApplicationCount(options.applications);
        for (auto const& [method, fault] : options.faults)
            services.setFault(method, fault);
        services.setTriggerHandler([&producer] {
            return producer.produce() != 0 ? camsim::CamDBusServices::Decoding::Positive
                                           : camsim::CamDBusServices::Decoding::None;
        });
        std::string busError;
        if (services.connect(busError))
            services.start();
        else
            fprintf(stderr, "camsim: no device services: %s\n", busError.c_str());
        printf("ready\n");
        fflush(stdout);

        for (;;) {
            int signal = 0;
            if (sigwait(&signals, &signal) != 0)
                continue;
            if (signal != SIGUSR1)
                break;
            uint32_t const id = producer.produce();
            printf("published %u\n", id);
            fflush(stdout);
        }
        services.stop();
        producer.stopFreeRunning();
        fprintf(stderr, "camsim: %u results published, cleaning up\n", producer.produced());
    } catch (std::exception const& e) {
        fprintf(stderr, "camsim: %s\n", e.what());
        return 1;
    }
    return 0;
}
