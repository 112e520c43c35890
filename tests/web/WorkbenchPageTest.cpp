// The workbench's page in a real browser (headless Chromium driven by Selenium, tests/web/page_test.py)
// over the simulated camera publishing five results a second, with a second server that is read-only.
// The screenshots go to the build folder's web-shots/; page-live.png is the README's picture.
#include <string>

#include <gtest/gtest.h>

#include "CameraSim.h"
#include "DBusDaemon.h"
#include "Process.h"
#include "RedisServer.h"
#include "WorkbenchServer.h"

using namespace orv::test;

TEST(WorkbenchPage, ShowsTheCameraLiveTheBytesTheLogAndHidesChangesWhenReadOnly)
{
    RedisEnvironment redis;
    DBusDaemon bus;
    CameraSim camera({5, "176x132", 8, 3, {}, "3,0,2"});
    // Each plug-in asks for the bus name of its own service; the one started last holds it, and the
    // page that changes things needs it.
    WorkbenchServer const readOnly({"--read-only"});
    WorkbenchServer const server;
    ProgramRun const run =
        runProgram({KV_SYSTEM_PYTHON, KV_SOURCE_DIR "/tests/web/page_test.py", "--url", server.url(),
                    "--read-only-url", readOnly.url(), "--shots", KV_BINARY_DIR "/web-shots"},
                   "", 240);
    std::string output;
    for (std::string const& line : run.lines)
        output += line + "\n";
    EXPECT_EQ(run.exitCode, 0) << output << run.err;
}
