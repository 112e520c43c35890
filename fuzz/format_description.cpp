// Output-format descriptions as a client sends them: through the validator (id 27), and through the
// plan of the format-results command over a result with models and ROIs (id 26 without Redis).
#include <cstdint>
#include <cstdlib>
#include <string>

#include "format/OutputFormatScheme.h"
#include "format/RecordMain.h"
#include "format/VornFormatOutput.h"
#include "format/VornFormatPlan.h"
#include "results/ResultModel.h"

namespace {

ResultModel const& result()
{
    static ResultModel const model = [] {
        setenv("ORV_VORN_SCHEMA_DIR", KV_SOURCE_DIR "/schema", 1);
        setenv("ORV_IMAGER_RUN_DIR", "/nonexistent", 1);
        qInstallMessageHandler([](QtMsgType, QMessageLogContext const&, QString const&) {});
        QByteArray text(R"({"ApplicationIndex":2,"big":1e300,"text":"a\\x41","list":[1,2],
            "ll_results":{"virtual_out":{"byte1":300,"byte8":-1},"statistics":{"current_passed":true}},
            "adv_statistics":{"number_of_frames":9,"frame_duration":{"mean":1.5}},
            "model_001":{"numGood":1,"ROIs":{"1":{"v":-7,"boundingBox":{"x":3}},"2":{"v":1e30}}},
            "model_002":{"ROIs":{}}})");
        ResultModel parsed;
        parsed.parse(text);
        return parsed;
    }();
    return model;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    ResultModel const& model = result();
    std::string const text(reinterpret_cast<char const*>(data), size);
    std::string error;
    orv::doesJsonConformToOutputFormatScheme(text.c_str(), error);

    // Read as the format-results command reads a request: the input as the request, and as the
    // description inside one.
    for (QByteArray const& request :
         {QByteArray::fromStdString(text), "{\"format\":" + QByteArray::fromStdString(text) + "}"})
        for (BusByteOrder bus : {BusByteOrder::LittleEndian, BusByteOrder::BigEndian})
            if (std::shared_ptr<VornFormatPlan const> plan = VornFormatPlan::fromRequest(request, bus)) {
                orv::RecordMain main(nullptr, model, "1");
                VornFormatOutput out;
                plan->write(main, out);
            }
    return 0;
}
