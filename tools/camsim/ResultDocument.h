// The JSON result model and the diagnostic document of one simulated result, and the ROI masks
// of its models.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "RoiLayout.h"
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
    ResultDocument(SyntheticScene const& scene, RoiLayout const& layout, uint32_t id);

    // "ModelResult": application index, the layout's models "model_001", "model_002", ... with their
    // ROIs, "ll_results" and "adv_statistics".
    std::string modelJson() const;
    std::string diagnosticJson() const;
    std::vector<RoiMask> masks() const;

    double temperatureIllu() const;
    double temperatureFrontend(int which) const;
    unsigned int frameDurationUs() const;
    unsigned int exposureTimeUs(int which) const;

private:
    SyntheticScene const& m_scene;
    RoiLayout const& m_layout;
    uint32_t m_id;
    BoxPosition m_box;
};

} // namespace camsim
