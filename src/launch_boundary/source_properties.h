#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_PROPERTIES_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_PROPERTIES_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace linux_capture {

// The text without those pipewiresrc properties that the installed element
// does not have; writes one stage line naming them. Older PipeWire releases
// lack them and the parser would refuse the whole text.
std::string OmitUnsupportedSourceProperties(const std::string& description);

// The same as a pure function: `isSupported` judges a property of pipewiresrc,
// `omitted` collects the names left out. Only `always-copy`, `use-bufferpool`
// and `on-disconnect` are ever omitted.
std::string OmitSourceProperties(
    const std::string& description,
    const std::function<bool(std::string_view)>& isSupported,
    std::vector<std::string>& omitted);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_SOURCE_PROPERTIES_H_
