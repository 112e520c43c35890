#include "ServeCommand.h"

#include <csignal>
#include <cstdio>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>

#include "Workbench.h"

namespace vornhost {

char const* const ServeUsage =
    "serve [--listen ADDRESS:PORT] [--read-only] [--token TEXT] [--web DIR] [--examples DIR]";
char const* const ServeHelp =
    "Serves a local web page that shows the camera live (the picture with its ROIs, the distance\n"
    "image, the models), the answer to a description byte by byte with its decoders, the log and\n"
    "the device, through the plug-in's own commands, one call at a time. Prints the URL.\n\n"
    "  --listen ADDRESS:PORT  where to listen (default 127.0.0.1:8080; port 0 picks a free one); off\n"
    "                         the loopback every request needs the token the printed URL carries\n"
    "  --read-only            refuse every change (trigger, application, outputs, log mask)\n"
    "  --token TEXT           the token instead of a random one\n"
    "  --web DIR              the page's files (default: this build's, else the installed ones)\n"
    "  --examples DIR         descriptions offered as examples (default: this build's, else the\n"
    "                         installed ones)\n"
    "See docs/workbench.md for the safety model and the API.\n";

namespace {

std::string existingOr(char const* buildPath, char const* installedPath)
{
    struct stat st;
    return stat(buildPath, &st) == 0 ? buildPath : installedPath;
}

void splitListen(std::string const& text, Workbench::Settings& settings)
{
    size_t const colon = text.rfind(':');
    std::string host = colon == std::string::npos ? text : text.substr(0, colon);
    if (host.size() > 1 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    if (colon == std::string::npos || host.empty())
        throw UsageError("--listen wants ADDRESS:PORT, as 127.0.0.1:8080 or 0.0.0.0:0");
    settings.host = host;
    settings.port =
        static_cast<int>(Args::toNumber(text.substr(colon + 1), "the port of --listen", 0, 65535));
}

} // namespace

int serve(std::string const& pluginPath, Args& args)
{
    Workbench::Settings settings;
    settings.plugin = pluginPath;
    if (auto listen = args.option("--listen"))
        splitListen(*listen, settings);
    settings.readOnly = args.flag("--read-only");
    settings.token = args.option("--token").value_or("");
    settings.webDir = args.option("--web").value_or(existingOr(VORN_HOST_BUILD_WEB, VORN_HOST_INSTALLED_WEB));
    settings.examples = args.option("--examples")
                            .value_or(existingOr(VORN_HOST_BUILD_EXAMPLES, VORN_HOST_INSTALLED_EXAMPLES));
    args.expectCount(0, 0);

    // The signals are taken by one thread of their own, so that none lands in a server thread.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    signal(SIGPIPE, SIG_IGN);

    Workbench workbench(settings);
    std::string url;
    try {
        url = workbench.listen();
    } catch (std::exception const& e) {
        throw cli::Failure(e.what(), 1);
    }
    printf("workbench: %s%s\n", url.c_str(), settings.readOnly ? " (read-only)" : "");
    fflush(stdout);
    std::thread waiter([&workbench, ending] {
        int signal = 0;
        sigwait(&ending, &signal);
        workbench.stop();
    });
    workbench.serve();
    // Ended by other means than a signal: the waiter is woken by one of its own.
    pthread_kill(waiter.native_handle(), SIGTERM);
    waiter.join();
    return 0;
}

} // namespace vornhost
