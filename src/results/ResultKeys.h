// The names under which clients ask for a result's data: the camera's planes and matrices in the
// frame, and the data derived from a result on request. One list for the plug-in, the simulated
// camera and the tools.
#pragma once

namespace orv {
namespace ResultKeys {

constexpr char NormalizedAmplitudeImage[] = "normalized_amplitude_image";
constexpr char DistanceImage[] = "distance_image";
constexpr char XImage[] = "x_image";
constexpr char YImage[] = "y_image";
constexpr char ZImage[] = "z_image";
constexpr char ConfidenceImage[] = "confidence_image";
constexpr char ExtrinsicCalibration[] = "extrinsic_calibration";
constexpr char AllCartesianVectorMatrices[] = "all_cartesian_vector_matrices";
constexpr char AmplitudeImage[] = "amplitude_image";
constexpr char RawImageData[] = "raw_image_data";
constexpr char AllUnitVectorMatrices[] = "all_unit_vector_matrices";

// Every key of frame data, served in place from the frame.
constexpr char const* FrameData[] = {
    NormalizedAmplitudeImage,
    DistanceImage,
    XImage,
    YImage,
    ZImage,
    ConfidenceImage,
    ExtrinsicCalibration,
    AllCartesianVectorMatrices,
    AmplitudeImage,
    RawImageData,
    AllUnitVectorMatrices,
};

// Derived by the result manager when asked for, kept until the result is released.
constexpr char JsonModel[] = "json_model";
constexpr char JsonDiagnostic[] = "json_diagnostic";
constexpr char DiagnosticData[] = "diagnostic_data";
constexpr char AmplitudePicture[] = "z4_amplitude_png";

// Where the camera leaves a result in Redis: the hash "result_<id>" with these fields, and the mask
// of each model as the file "roimask_<model id>" in the imager's run directory.
constexpr char RedisResultPrefix[] = "result_";
constexpr char ModelResultField[] = "ModelResult";
constexpr char DiagnosticDataField[] = "DiagnosticData";
constexpr char RoiMaskPrefix[] = "roimask_";

} // namespace ResultKeys
} // namespace orv
