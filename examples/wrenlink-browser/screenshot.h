// --screenshot: a picture of the window once it has filled.
#pragma once

#include <QString>

class MainWindow;

// Waits until the window has filled, then `afterSeconds` more, draws the window into a PNG at
// `path` and quits the application: status 0, or 1 when the file cannot be written. An agent that
// cannot be reached quits it with status 1 and the reason on standard error.
void saveScreenshotWhenFilled(MainWindow &window, const QString &path, double afterSeconds);
