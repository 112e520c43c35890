// The status word at the head of every reply payload, and the reply codes of the reply blocks.
#pragma once

#include <cstdint>

namespace orv {

namespace VornStatus {
constexpr int32_t Success = 0;
constexpr int32_t DeviceFailure = 100000002;      // a device-service call failed
constexpr int32_t GenericFailure = 100000003;     // initial value of every reply
constexpr int32_t RejectedArgument = 100000004;   // unknown key or rejected argument
constexpr int32_t DataNotAvailable = 100001003;   // requested result data not available
constexpr int32_t InvalidIONumber = 100001004;    // the I/O mapping has no such pin
constexpr int32_t PinNotInOutputMode = 100001005; // the pin cannot be set
} // namespace VornStatus

// Only four commands answer with their request id plus one; all others answer 0. The host reads
// the reply code, so the asymmetry is part of the interface.
namespace ReplyCode {
constexpr int32_t Default = 0;
constexpr int32_t QueryResultData = 3;
constexpr int32_t SetApplication = 18;
constexpr int32_t QueryDeviceInfo = 21;
constexpr int32_t QueryStatisticInfo = 23;
} // namespace ReplyCode

} // namespace orv
