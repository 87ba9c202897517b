// How results reach the window. The library's calls block and run on worker threads; what they
// give back is handed to an object that lives on the window's thread as a queued call, so that
// every signal of the browser's classes is emitted on the window's thread.
//
// The workers' state may outlive that object: an object that goes lets its workers go (see
// leftovers.h) rather than wait for them. So a worker never holds the object itself, only its
// ToWindow: the object cuts it as it goes, nothing is queued for it after that, and a call still
// queued is dropped with the object.
#pragma once

#include <QMetaObject>
#include <QObject>
#include <mutex>
#include <utility>

template <class Front>
class ToWindow {
public:
    explicit ToWindow(Front *front) : front_(front) {}
    ToWindow(const ToWindow &) = delete;
    ToWindow &operator=(const ToWindow &) = delete;

    // Queues deliver(front) on the window's thread; from any thread.
    template <class Deliver>
    void operator()(Deliver deliver) {
        std::lock_guard lock(mutex_);
        if (front_ == nullptr) return;
        QMetaObject::invokeMethod(
            front_, [front = front_, deliver = std::move(deliver)] { deliver(*front); }, Qt::QueuedConnection);
    }

    // From the window's thread, as the front goes.
    void cut() {
        std::lock_guard lock(mutex_);
        front_ = nullptr;
    }

private:
    std::mutex mutex_;
    Front *front_;
};
