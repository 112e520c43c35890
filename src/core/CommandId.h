// The request ids of the commands the plug-in serves, as the host passes them in a request block.
#pragma once

#include <cstdint>

namespace orv {
namespace CommandId {
constexpr int32_t QueryResultData = 2;
constexpr int32_t AcquireResultId = 4;
constexpr int32_t FreeResultId = 5;
constexpr int32_t AsyncTrigger = 9;
constexpr int32_t SyncTrigger = 10;
constexpr int32_t SetIO = 11;
constexpr int32_t GetIO = 12;
constexpr int32_t GetApplicationList = 14;
constexpr int32_t SetApplication = 17;
constexpr int32_t QueryDeviceInfo = 20;
constexpr int32_t QueryStatisticInfo = 22;
constexpr int32_t FormatResults = 26;
constexpr int32_t ValidateFormat = 27;
} // namespace CommandId
} // namespace orv
