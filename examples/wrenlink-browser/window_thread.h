// How results reach the window. The library's calls block and run on worker threads; what they
// give back is handed to an object that lives on the window's thread as a queued call, so that
// every signal of the browser's classes is emitted on the window's thread. A call still queued
// when its receiver goes is dropped with it.
#pragma once

#include <QMetaObject>
#include <QObject>
#include <functional>
#include <utility>

inline void onWindowThread(QObject *receiver, std::function<void()> deliver) {
    QMetaObject::invokeMethod(receiver, std::move(deliver), Qt::QueuedConnection);
}
