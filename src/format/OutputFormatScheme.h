// Checks a client's output-format description against the format schema installed with the
// plug-in ("vorn-format.json" in the schema directory, with the files it references).
#pragma once

#include <string>

namespace orv {

// True when the text is a description the layouter can serve; otherwise false with a readable
// reason in error (which key, what is wrong with it).
bool doesJsonConformToOutputFormatScheme(char const* json, std::string& error);

} // namespace orv
