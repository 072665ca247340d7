#ifndef LINUX_CAPTURE_BASE_OBJECT_DATA_H_
#define LINUX_CAPTURE_BASE_OBJECT_DATA_H_

#include <gst/gst.h>

#include <memory>

#include "base/c_callback.h"

namespace linux_capture {

// What is kept on an object of GLib under `key` and goes with it.

template <typename Data>
void DeleteObjectData(gpointer data) {
  const std::unique_ptr<Data> owner(static_cast<Data*>(data));
}

// In the place of what was there.
template <typename Data>
void SetObjectData(gpointer object, const char* key,
                   std::unique_ptr<Data> data) {
  g_object_set_data_full(G_OBJECT(object), key, data.release(),
                         NoThrow<&DeleteObjectData<Data>>);
}

// Null where there is none. `Data` is what was set.
template <typename Data>
Data* ObjectData(gpointer object, const char* key) {
  return static_cast<Data*>(g_object_get_data(G_OBJECT(object), key));
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_OBJECT_DATA_H_
