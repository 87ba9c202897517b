// What the workers of an agent object use: its connection, its threads and its way to the window.
// The object on the window's thread holds it; when that object goes, it lets the work go instead
// of waiting for it (letGo): calls not started are dropped, the connection is shut so that the
// calls under way return at once, and a thread of the leftovers waits for them before the work is
// freed. The workers are handed the work, never the object.
#pragma once

#include <QThreadPool>
#include <memory>

#include "agent_link.h"
#include "leftovers.h"
#include "window_thread.h"

template <class Front>
struct AgentWork {
    AgentWork(Front *front, const QString &address, quint16 port, int threads)
        : link(address, port), toWindow(front), where(address + ":" + QString::number(port)) {
        pool.setMaxThreadCount(threads);
    }

    void report(const QString &what) {
        toWindow([what](Front &front) { emit front.failed(what); });
    }

    AgentLink link;
    QThreadPool pool;
    ToWindow<Front> toWindow;
    const QString where;
};

// Once shut, the connection holds no call; only a connect under way can outlast the grace, the
// system's own time limit on it.
template <class Work>
void letGo(std::shared_ptr<Work> work) {
    work->toWindow.cut();
    work->pool.clear();
    work->link.shut();
    Leftovers::instance().add(work->where + ": a connect under way is left behind until the system gives up on it",
                              [work] { work->pool.waitForDone(); });
}
