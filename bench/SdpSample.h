// A realistic session description (one audio and one video m-line, about 4 KB)
// for the wire-format benchmarks and the demo.
#pragma once

#include <string>

namespace qxvc::bench {

std::string sampleSessionDescription();

}  // namespace qxvc::bench
