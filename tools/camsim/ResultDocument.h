// The JSON result model and the diagnostic document of one simulated result, and the ROI masks
// of its models.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SyntheticScene.h"

namespace camsim {

struct RoiMask
{
    int modelId;
    std::vector<unsigned char> pixels; // one byte per image pixel: the id of the ROI there, or 0
};

class ResultDocument
{
public:
    ResultDocument(SyntheticScene const& scene, uint32_t id);

    // "ModelResult": application index, models "model_001" and "model_002" with their ROIs of every
    // kind, "ll_results" and "adv_statistics".
    std::string modelJson() const;
    std::string diagnosticJson() const;
    std::vector<RoiMask> masks() const;

    double temperatureIllu() const;
    double temperatureFrontend(int which) const;
    unsigned int frameDurationUs() const;
    unsigned int exposureTimeUs(int which) const;

private:
    SyntheticScene const& m_scene;
    uint32_t m_id;
    BoxPosition m_box;
};

} // namespace camsim
