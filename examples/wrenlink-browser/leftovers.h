// Work the window has let go of, ended off the window's thread. An object that goes (a disconnect,
// the window's close) hands its workers' state here instead of waiting for them: a thread of its
// own gets the calls under way to return (a connection closed, a scan asked to stop), waits for
// them and frees the state after the last one. A scan's loop ends only when its agent closes the
// event stream, so an agent that hangs holds that thread, and the state its loop uses, for as long
// as it hangs; the window says so, and the program's end waits only a short grace for it.
#pragma once

#include <QString>
#include <QStringList>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>

class Leftovers {
public:
    // The one list. It is never destroyed: a thread that a hung agent holds at the program's end
    // still uses it.
    static Leftovers &instance();

    // Runs `end` on a thread of its own and then drops it, with whatever state it holds; `what`
    // says what is left behind for as long as it runs.
    void add(const QString &what, std::function<void()> end);
    QStringList underWay() const;
    // Waits up to `grace` for everything added to end: false when something is still under way.
    bool settle(std::chrono::milliseconds grace);

private:
    Leftovers() = default;

    mutable std::mutex mutex_;
    std::condition_variable ended_;
    std::list<QString> underWay_;
};
