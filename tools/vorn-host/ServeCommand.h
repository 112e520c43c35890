// "serve": the workbench, a local web page over the plug-in (see docs/workbench.md).
#pragma once

#include <string>

#include "HostCommand.h"

namespace vornhost {

extern char const* const ServeUsage;
extern char const* const ServeHelp;

// Serves until SIGINT or SIGTERM; the exit code.
int serve(std::string const& pluginPath, Args& args);

} // namespace vornhost
