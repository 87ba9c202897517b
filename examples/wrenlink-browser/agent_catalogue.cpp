#include "agent_catalogue.h"

#include "window_thread.h"

namespace {

constexpr int32_t kChunk = 256 * 1024;
constexpr qsizetype kLargestImage = 32 * 1024 * 1024;  // a larger file gets no thumbnail

// The whole file, through the file calls. Empty when done, otherwise what failed.
QString readWholeFile(NetConnection *conn, const QString &path, QByteArray &bytes) {
    RemoteFile file;
    if (const AgentStatus status = file.open(conn, path, "rb")) return callFailed("NFCFileRefOpen", status, path);
    for (;;) {
        if (bytes.size() > kLargestImage) return path + ": larger than " + humanSize(kLargestImage);
        const qsizetype at = bytes.size();
        bytes.resize(at + kChunk);
        int32_t length = kChunk;
        const AgentStatus status = file.read(bytes.data() + at, length);
        bytes.resize(at + (status == 0 ? length : 0));
        if (status != 0) return callFailed("NFCFileRefRead", status, path);
        if (length == 0) return {};
    }
}

}  // namespace

Catalogue::Catalogue(const QString &address, quint16 port, QObject *parent)
    : QObject(parent), link_(address, port) {
    pool_.setMaxThreadCount(2);
}

Catalogue::~Catalogue() {
    pool_.clear();  // calls not started yet
    link_.close();
    pool_.waitForDone();
}

void Catalogue::run(std::function<void()> call) { pool_.start(std::move(call)); }

void Catalogue::report(const QString &what) {
    onWindowThread(this, [this, what] { emit failed(what); });
}

void Catalogue::open() {
    run([this] {
        const QString error = link_.open();
        if (!error.isEmpty()) return report(error);
        onWindowThread(this, [this] { emit opened(); });
    });
}

void Catalogue::list() {
    run([this] {
        NetConnection *conn = link_.get();
        MediaLists lists;
        using Lister = AgentStatus (*)(NetConnection *, __MediaBean *, uint32_t *);
        const struct {
            const char *call;
            Lister lister;
            MediaItem::Kind kind;
            std::vector<MediaItem> &into;
        } kinds[] = {{"NMCListImages", NMCListImages, MediaItem::Kind::Image, lists.images},
                     {"NMCListMusics", NMCListMusics, MediaItem::Kind::Music, lists.music},
                     {"NMCListVideo", NMCListVideo, MediaItem::Kind::Video, lists.videos}};
        for (const auto &kind : kinds) {
            __MediaBean head{};
            uint32_t count = 0;
            AgentStatus status = 0;
            {
                ExchangeLock lock(conn);
                status = kind.lister(conn, &head, &count);
            }
            if (status != 0) return report(callFailed(kind.call, status));
            kind.into = takeMediaList(kind.kind, head);
        }
        onWindowThread(this, [this, lists] { emit listed(lists); });
    });
}

void Catalogue::readThumbnail(quint32 id, const QString &path, int side) {
    run([this, id, path, side] {
        QByteArray bytes;
        const QString error = readWholeFile(link_.get(), path, bytes);
        if (!error.isEmpty()) report(error);
        QImage image;
        if (error.isEmpty() && image.loadFromData(bytes))
            image = image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        onWindowThread(this, [this, id, image] { emit thumbnailRead(id, image); });
    });
}
