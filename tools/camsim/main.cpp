// The simulated camera: publishes results like a camera's processing side (on demand or at a fixed
// rate) until SIGTERM, then removes everything it made.
//
//   camsim [--rate HZ] [--size 176x132|224x172] [--ring N] [--burst N] [--apps N]
//          [--fault METHOD=KIND[:VALUE]]...
//
// It also serves the camera's device services on the system bus (DBUS_SYSTEM_BUS_ADDRESS): a
// trigger publishes one result; --apps sets the number of applications, --fault makes a method
// misbehave (see CamDBusServices.h). Without a bus it runs without them.
//
// SIGUSR1 publishes one result on demand; each such result's id is printed as "published <id>".
// "ready" is printed once everything is set up.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <pthread.h>
#include <string>

#include <vector>

#include "CamDBusServices.h"
#include "FrameProducer.h"

namespace {

struct Options
{
    camsim::FrameProducerOptions producer;
    double rate = 0;
    unsigned int burst = 0;
    int applications = 3;
    std::vector<std::string> faults;
};

void usage()
{
    fprintf(stderr, "usage: camsim [--rate HZ] [--size 176x132|224x172] [--ring N] [--burst N] [--apps N]\n"
                    "              [--fault METHOD=KIND[:VALUE]]...\n");
}

bool parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i) {
        std::string const arg = argv[i];
        if (i + 1 >= argc)
            return false;
        std::string const value = argv[++i];
        if (arg == "--rate") {
            options.rate = atof(value.c_str());
        } else if (arg == "--size" && (value == "176x132" || value == "224x172")) {
            options.producer.width = value == "176x132" ? 176 : 224;
            options.producer.height = value == "176x132" ? 132 : 172;
        } else if (arg == "--ring" && atoi(value.c_str()) > 0) {
            options.producer.ringSize = static_cast<unsigned int>(atoi(value.c_str()));
        } else if (arg == "--apps" && atoi(value.c_str()) >= 0) {
            options.applications = atoi(value.c_str());
        } else if (arg == "--fault") {
            std::string method;
            camsim::Fault fault;
            if (!camsim::parseFault(value, method, fault))
                return false;
            options.faults.push_back(value);
        } else if (arg == "--burst") {
            options.burst = static_cast<unsigned int>(atoi(value.c_str()));
        } else {
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        usage();
        return 2;
    }
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
        for (std::string const& text : options.faults) {
            std::string method;
            camsim::Fault fault;
            camsim::parseFault(text, method, fault);
            services.setFault(method, fault);
        }
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
