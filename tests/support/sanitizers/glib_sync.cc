// Shows the thread sanitizer how GLib and GStreamer hand memory from one
// thread to another. Their locks are built from atomics and futexes and are not
// compiled for the sanitizer, so it would take everything that they protect,
// such as the data of a callback that is connected on one thread and called on
// another, for a race.
//
// The same holds for buffers that several branches share: who finds itself the
// last owner may write, and the count of owners is an atomic of GLib's.
//
// Preloaded behind the sanitizer's own library, or part of the program. Each
// function is called in place of GLib's, does what GLib's does, and reports the
// order that the lock gives. Nothing is hidden by this: what has no lock in
// common is still a race.

#include <dlfcn.h>
#include <glib.h>
#include <gst/gst.h>

#include <memory>

// The sanitizer's own header is not found by every compiler that reads this.
// NOLINTBEGIN
extern "C" {
void __tsan_acquire(void* address);
void __tsan_release(void* address);
}
// NOLINTEND

namespace {

// The next definition of the caller's own name, which is GLib's.
template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The names are GLib's and GStreamer's, which declare them with C linkage.

void g_mutex_lock(GMutex* mutex) {
  static auto* const real = Real<decltype(g_mutex_lock)>(__func__);
  real(mutex);
  __tsan_acquire(mutex);
}

gboolean g_mutex_trylock(GMutex* mutex) {
  static auto* const real = Real<decltype(g_mutex_trylock)>(__func__);
  const gboolean isLocked = real(mutex);
  if (isLocked != FALSE) __tsan_acquire(mutex);
  return isLocked;
}

void g_mutex_unlock(GMutex* mutex) {
  static auto* const real = Real<decltype(g_mutex_unlock)>(__func__);
  __tsan_release(mutex);
  real(mutex);
}

void g_rec_mutex_lock(GRecMutex* mutex) {
  static auto* const real = Real<decltype(g_rec_mutex_lock)>(__func__);
  real(mutex);
  __tsan_acquire(mutex);
}

gboolean g_rec_mutex_trylock(GRecMutex* mutex) {
  static auto* const real = Real<decltype(g_rec_mutex_trylock)>(__func__);
  const gboolean isLocked = real(mutex);
  if (isLocked != FALSE) __tsan_acquire(mutex);
  return isLocked;
}

void g_rec_mutex_unlock(GRecMutex* mutex) {
  static auto* const real = Real<decltype(g_rec_mutex_unlock)>(__func__);
  __tsan_release(mutex);
  real(mutex);
}

void g_cond_wait(GCond* condition, GMutex* mutex) {
  static auto* const real = Real<decltype(g_cond_wait)>(__func__);
  __tsan_release(mutex);
  real(condition, mutex);
  __tsan_acquire(mutex);
}

gboolean g_cond_wait_until(GCond* condition, GMutex* mutex, gint64 endTime) {
  static auto* const real = Real<decltype(g_cond_wait_until)>(__func__);
  __tsan_release(mutex);
  const gboolean isSignalled = real(condition, mutex, endTime);
  __tsan_acquire(mutex);
  return isSignalled;
}

// What this thread did with an object comes before it gives it up.
void gst_mini_object_unref(GstMiniObject* object) {
  static auto* const real = Real<decltype(gst_mini_object_unref)>(__func__);
  __tsan_release(object);
  GstBuffer* held =
      GST_IS_SAMPLE(object)
          ? gst_sample_get_buffer(reinterpret_cast<GstSample*>(object))
          : nullptr;
  if (held != nullptr) __tsan_release(held);
  real(object);
}

GstMiniObject* gst_mini_object_make_writable(GstMiniObject* object) {
  static auto* const real =
      Real<decltype(gst_mini_object_make_writable)>(__func__);
  __tsan_release(object);
  GstMiniObject* writable = real(object);
  __tsan_acquire(object);
  return writable;
}

namespace {

struct WatchedProbe {
  GstPadProbeCallback callback;
  gpointer data;
  GDestroyNotify destroyData;
};

// GStreamer itself gives up what a probe has seen, unseen by the above.
GstPadProbeReturn CallProbe(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
  const auto& probe = *static_cast<WatchedProbe*>(data);
  gpointer seen = GST_PAD_PROBE_INFO_DATA(info);
  const GstPadProbeReturn result = probe.callback(pad, info, probe.data);
  __tsan_release(seen);
  return result;
}

void DeleteProbe(gpointer data) {
  const std::unique_ptr<WatchedProbe> probe(static_cast<WatchedProbe*>(data));
  if (probe->destroyData != nullptr) probe->destroyData(probe->data);
}

}  // namespace

gulong gst_pad_add_probe(GstPad* pad, GstPadProbeType mask,
                         GstPadProbeCallback callback, gpointer data,
                         GDestroyNotify destroyData) {
  static auto* const real = Real<decltype(gst_pad_add_probe)>(__func__);
  auto probe =
      std::make_unique<WatchedProbe>(WatchedProbe{callback, data, destroyData});
  return real(pad, mask, CallProbe, probe.release(), DeleteProbe);
}
