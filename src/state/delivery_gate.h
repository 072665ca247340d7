#ifndef LINUX_CAPTURE_STATE_DELIVERY_GATE_H_
#define LINUX_CAPTURE_STATE_DELIVERY_GATE_H_

#include "base/mutex.h"

namespace linux_capture {

// Stands between a sink's streaming thread and all that belongs to the capture
// of the moment: counters, encoders, callbacks. A pipeline that does not end
// when its capture does may deliver again long after the next one has begun;
// then its gates are shut.
//
// The mutex is held for the whole delivery of one sample, so an encoder's mutex
// and all that is below that is taken under it. It is taken under the capture
// mutex.
class DeliveryGate {
 public:
  // Whoever holds the pass may deliver; false for one of a shut gate.
  class SCOPED_CAPABILITY Pass {
   public:
    explicit Pass(DeliveryGate& gate) ACQUIRE(gate.mutex_) : gate_(gate) {
      gate.mutex_.lock();
      isOpen_ = gate.isOpen_;
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    ~Pass() RELEASE() { gate_.mutex_.unlock(); }
    explicit operator bool() const { return isOpen_; }

   private:
    DeliveryGate& gate_;
    bool isOpen_;
  };

  // Waits for the delivery that is under way, which nothing can hold up.
  void Shut() EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    isOpen_ = false;
  }

 private:
  Mutex mutex_;
  bool isOpen_ GUARDED_BY(mutex_) = true;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_DELIVERY_GATE_H_
