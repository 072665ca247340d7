#ifndef LINUX_CAPTURE_TESTS_UNIT_SUPPORT_FAKE_FACTORY_H_
#define LINUX_CAPTURE_TESTS_UNIT_SUPPORT_FAKE_FACTORY_H_

#include <gst/gst.h>

#include <string>

#include "base/gst_handles.h"

namespace linux_capture {

// Decides for its lifetime whether an element factory of that name exists in
// the registry, whatever is installed on this machine.
class FakeFactory {
 public:
  // The factory does not exist.
  explicit FakeFactory(const std::string& name);
  // It exists, with one sink and one source pad template of those caps.
  FakeFactory(const std::string& name, const std::string& sinkCaps,
              const std::string& sourceCaps);
  FakeFactory(const FakeFactory&) = delete;
  FakeFactory& operator=(const FakeFactory&) = delete;
  ~FakeFactory();

 private:
  std::string name_;
  GstPluginFeaturePtr installed_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_TESTS_UNIT_SUPPORT_FAKE_FACTORY_H_
