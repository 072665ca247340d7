#ifndef LINUX_CAPTURE_BASE_PIPELINE_ELEMENTS_H_
#define LINUX_CAPTURE_BASE_PIPELINE_ELEMENTS_H_

#include <gst/gst.h>

#include <string_view>

#include "base/gst_handles.h"

namespace linux_capture {

inline bool HasProperty(gpointer object, const char* name) {
  return g_object_class_find_property(G_OBJECT_GET_CLASS(object), name) !=
         nullptr;
}

// The name of the factory that made the element; empty for one that no factory
// made.
inline std::string_view FactoryNameOf(GstElement* element) {
  const GstElementFactory* factory = gst_element_get_factory(element);
  return factory == nullptr ? std::string_view()
                            : GST_OBJECT_NAME(GST_OBJECT_CAST(factory));
}

// The element in front of a one-input element, or null.
inline GstElementPtr UpstreamOf(GstElement* element) {
  const GstPadPtr sink(gst_element_get_static_pad(element, "sink"));
  if (!sink) return nullptr;
  const GstPadPtr peer(gst_pad_get_peer(sink.get()));
  if (!peer) return nullptr;
  return GstElementPtr(gst_pad_get_parent_element(peer.get()));
}

// Calls `visit` for every element of the pipeline made by `factoryName`.
template <typename Visit>
void ForEachElementOf(GstElement* pipeline, std::string_view factoryName,
                      Visit visit) {
  if (!GST_IS_BIN(pipeline)) return;
  const GstIteratorPtr elements(gst_bin_iterate_recurse(GST_BIN(pipeline)));
  GValue item = G_VALUE_INIT;
  while (gst_iterator_next(elements.get(), &item) == GST_ITERATOR_OK) {
    const GstElementPtr element(
        GST_ELEMENT(gst_object_ref(g_value_get_object(&item))));
    g_value_unset(&item);
    if (FactoryNameOf(element.get()) == factoryName) visit(element.get());
  }
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_PIPELINE_ELEMENTS_H_
