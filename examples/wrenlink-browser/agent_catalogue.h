// The browsing connection: the media catalogue and the thumbnails, its calls on a small pool.
// Thumbnails are read while the lists may be read again, on the same connection: the file calls
// lock each exchange, and the lists, which lock nothing, hold the connection's lock themselves.
#pragma once

#include <QImage>
#include <QObject>
#include <functional>
#include <memory>
#include <vector>

#include "agent_work.h"
#include "records.h"

struct MediaLists {
    std::vector<MediaItem> images, music, videos;
};

class Catalogue : public QObject {
    Q_OBJECT
public:
    Catalogue(const QString &address, quint16 port, QObject *parent = nullptr);
    // Lets the calls under way go (letGo): they return once the connection is shut.
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
    using Work = AgentWork<Catalogue>;
    void run(std::function<void(Work &)> call);

    std::shared_ptr<Work> work_;
};
