#include "format/VornFormatterJsonValidator.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>

#include "core/VornStatus.h"
#include "format/OutputFormatScheme.h"
#include "logger/RedisLogger.h"

using orv::Logger::RedisLogger;

namespace orv {

VornFormatterJsonValidator::VornFormatterJsonValidator(RedisLogger& logger) : m_logger(logger) {}

DataBlock* VornFormatterJsonValidator::execute(DataBlock const* request)
{
    auto* status = static_cast<int32_t*>(malloc(sizeof(int32_t)));
    if (status != nullptr) {
        *status = VornStatus::RejectedArgument;
        if (request != nullptr && request->data != nullptr) {
            std::string error;
            bool conforms = false;
            try {
                conforms =
                    doesJsonConformToOutputFormatScheme(reinterpret_cast<char const*>(request->data), error);
            } catch (std::exception const& e) {
                // Out of memory or a pattern too complex on hostile input: the description is refused.
                error = e.what();
            }
            if (conforms)
                *status = VornStatus::Success;
            else
                m_logger.log(RedisLogger::WARN, "%s: Validation error: %s", "execute", error.c_str());
        }
    }
    DataBlock* block = create_DataBlock(ReplyCode::Default, reinterpret_cast<unsigned char*>(status));
    if (block == nullptr)
        free(status);
    return block;
}

} // namespace orv
