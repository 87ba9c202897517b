// The browsing connection: the media catalogue and the thumbnails, its calls on a small pool.
// Thumbnails are read while the lists may be read again, on the same connection: the file calls
// lock each exchange, and the lists, which lock nothing, hold the connection's lock themselves.
#pragma once

#include <QImage>
#include <QObject>
#include <QThreadPool>
#include <functional>
#include <vector>

#include "agent_link.h"
#include "records.h"

struct MediaLists {
    std::vector<MediaItem> images, music, videos;
};

class Catalogue : public QObject {
    Q_OBJECT
public:
    Catalogue(const QString &address, quint16 port, QObject *parent = nullptr);
    // Closes the connection, so that the calls under way return, and waits for them.
    ~Catalogue() override;

    void open();  // opened, or failed
    void list();  // listed, or failed
    // Reads the image and scales it to fit a square of `side` pixels: thumbnailRead, with a null
    // image when it could not be read (then failed too) or decoded.
    void readThumbnail(quint32 id, const QString &path, int side);

signals:
    void opened();
    void listed(const MediaLists &lists);
    void thumbnailRead(quint32 id, const QImage &image);
    void failed(const QString &what);

private:
    void run(std::function<void()> call);
    void report(const QString &what);

    AgentLink link_;
    QThreadPool pool_;
};
