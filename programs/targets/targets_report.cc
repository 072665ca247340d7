#include "targets/targets_report.h"

#include <algorithm>
#include <iterator>

#include "common/json_text.h"

namespace linux_capture::targets {
namespace {

using programs::JsonArray;
using programs::JsonBool;
using programs::JsonNumber;
using programs::JsonObject;
using programs::JsonString;

template <typename Element, typename Function>
std::string ArrayOf(const std::vector<Element>& elements, Function textOf) {
  std::vector<std::string> texts;
  texts.reserve(elements.size());
  for (const Element& element : elements) texts.push_back(textOf(element));
  return JsonArray(texts);
}

std::string AudioSourceText(const PlayingNode& node) {
  return JsonObject({{"pipeWireTargetObject", JsonNumber(node.serial)},
                     {"pipeWireNodeId", JsonNumber(node.id)},
                     {"pipeWireObjectSerial", JsonNumber(node.serial)},
                     {"processId", JsonNumber(node.processId)},
                     {"applicationName", JsonString(node.applicationName)},
                     {"processBinary", JsonString(node.processBinary)},
                     {"nodeName", JsonString(node.nodeName)},
                     {"mediaName", JsonString(node.mediaName)},
                     {"targetObject", JsonString(JsonNumber(node.serial))}});
}

std::string ApplicationText(const std::vector<PlayingNode>& nodes) {
  const PlayingNode& first = nodes.front();
  const auto serial = [](const PlayingNode& node) {
    return JsonNumber(node.serial);
  };
  std::vector<PlayingNode> paused;
  std::copy_if(nodes.begin(), nodes.end(), std::back_inserter(paused),
               [](const PlayingNode& node) { return node.isPaused; });
  return JsonObject(
      {{"linuxAudio",
        JsonObject(
            {{"mode", JsonString("process")},
             {"pipeWireTargetObjects", ArrayOf(nodes, serial)},
             {"pipeWireAudioSources", ArrayOf(nodes, AudioSourceText)}})},
       {"processId", JsonNumber(first.processId)},
       {"processBinary", JsonString(first.processBinary)},
       {"applicationName", JsonString(first.applicationName)},
       {"pausedTargetObjects", ArrayOf(paused, serial)}});
}

std::string InputSourceText(const Device& input) {
  return JsonObject({{"pipeWireTargetObject", JsonNumber(input.serial)},
                     {"nodeName", JsonString(input.name)},
                     {"mediaName", JsonString(input.description)}});
}

// Inputs are recorded beside others, which only this mode does.
std::string InputText(const Device& input) {
  return JsonObject(
      {{"linuxAudio",
        JsonObject(
            {{"mode", JsonString("process")},
             {"pipeWireTargetObjects", JsonArray({JsonNumber(input.serial)})},
             {"pipeWireAudioSources", JsonArray({InputSourceText(input)})}})},
       {"name", JsonString(input.name)},
       {"description", JsonString(input.description)},
       {"isDefault", JsonBool(input.isDefault)}});
}

std::string SinkText(const Device& sink) {
  return JsonObject(
      {{"linuxAudio", JsonObject({{"mode", JsonString("system")},
                                  {"pipeWireTargetObjects",
                                   JsonArray({JsonNumber(sink.serial)})}})},
       {"name", JsonString(sink.name)},
       {"description", JsonString(sink.description)},
       {"isDefault", JsonBool(sink.isDefault)}});
}

std::string GeometryText(const Rectangle& rectangle) {
  return JsonObject({{"x", JsonNumber(rectangle.x)},
                     {"y", JsonNumber(rectangle.y)},
                     {"width", JsonNumber(rectangle.width)},
                     {"height", JsonNumber(rectangle.height)}});
}

std::string MonitorText(const Monitor& monitor) {
  return JsonObject(
      {{"name", JsonString(monitor.name)},
       {"isPrimary", JsonBool(monitor.isPrimary)},
       {"source", JsonObject({{"backend", JsonString("x11")},
                              {"kind", JsonString("monitor")},
                              {"handle", "null"},
                              {"geometry", GeometryText(monitor.geometry)}})}});
}

std::string WindowText(const Window& window) {
  return JsonObject(
      {{"title", JsonString(window.title)},
       {"className", JsonString(window.className)},
       {"processId", JsonNumber(window.processId)},
       {"geometry", GeometryText(window.geometry)},
       {"source", JsonObject({{"backend", JsonString("x11")},
                              {"kind", JsonString("window")},
                              {"handle", JsonNumber(window.id)}})}});
}

std::string ProblemText(const Problem& problem) {
  return JsonObject({{"part", JsonString(problem.part)},
                     {"message", JsonString(problem.message)}});
}

}  // namespace

std::string ReportOf(const std::optional<PipeWireTargets>& pipeWire,
                     const std::optional<X11Targets>& x11,
                     const std::vector<Problem>& problems) {
  return JsonObject(
      {{"applications",
        pipeWire ? ArrayOf(GroupByProcess(pipeWire->nodes), ApplicationText)
                 : "null"},
       {"system", pipeWire ? ArrayOf(pipeWire->sinks, SinkText) : "null"},
       {"inputs", pipeWire ? ArrayOf(pipeWire->inputs, InputText) : "null"},
       {"monitors", x11 ? ArrayOf(x11->monitors, MonitorText) : "null"},
       {"windows", x11 ? ArrayOf(x11->windows, WindowText) : "null"},
       {"problems", ArrayOf(problems, ProblemText)}});
}

}  // namespace linux_capture::targets
