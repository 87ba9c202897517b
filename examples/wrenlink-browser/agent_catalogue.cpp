#include "agent_catalogue.h"

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
    : QObject(parent), work_(std::make_shared<Work>(this, address, port, 2)) {}

Catalogue::~Catalogue() { letGo(work_); }

// The work outlives the pool's threads, which it waits for before it goes.
void Catalogue::run(std::function<void(Work &)> call) {
    work_->pool.start([work = work_.get(), call = std::move(call)] { call(*work); });
}

void Catalogue::open() {
    run([](Work &work) {
        const QString error = work.link.open();
        if (!error.isEmpty()) return work.report(error);
        work.toWindow([](Catalogue &catalogue) { emit catalogue.opened(); });
    });
}

void Catalogue::list() {
    run([](Work &work) {
        NetConnection *conn = work.link.get();
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
            if (status != 0) return work.report(callFailed(kind.call, status));
            kind.into = takeMediaList(kind.kind, head);
        }
        work.toWindow([lists](Catalogue &catalogue) { emit catalogue.listed(lists); });
    });
}

void Catalogue::readThumbnail(quint32 id, const QString &path, int side) {
    run([id, path, side](Work &work) {
        QByteArray bytes;
        const QString error = readWholeFile(work.link.get(), path, bytes);
        if (!error.isEmpty()) work.report(error);
        QImage image;
        if (error.isEmpty() && image.loadFromData(bytes))
            image = image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        work.toWindow([id, image](Catalogue &catalogue) { emit catalogue.thumbnailRead(id, image); });
    });
}
