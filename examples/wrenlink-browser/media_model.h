// Media items as a table (name, size, date, type) for the lists, and as names with thumbnails
// for the image grid. Thumbnails load lazily: the view asks for a row's picture only when it
// draws that row, and the model then asks for it once (wantThumbnail).
#pragma once

#include <QAbstractTableModel>
#include <QImage>
#include <QPixmap>
#include <functional>
#include <unordered_map>
#include <vector>

#include "records.h"

class QTreeView;
class QWidget;

class MediaModel : public QAbstractTableModel {
    Q_OBJECT
public:
    static constexpr int kThumbnailSide = 96;

    MediaModel(const QString &firstColumn, bool thumbnails, QObject *parent = nullptr);

    void setItems(std::vector<MediaItem> items);
    void append(const std::vector<MediaItem> &items);
    const MediaItem &item(int row) const { return rows_[static_cast<std::size_t>(row)].item; }
    // A null image: the thumbnail could not be had.
    void setThumbnail(quint32 id, const QImage &image);
    // The row's thumbnail; null until it has come.
    QPixmap thumbnail(int row) const { return rows_[static_cast<std::size_t>(row)].pixmap; }
    // Thumbnails asked for and not yet come, and whether any was asked for since setItems.
    int pendingThumbnails() const { return pending_; }
    bool anyThumbnailAsked() const { return asked_; }

    std::function<void(const MediaItem &)> wantThumbnail;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    enum class Thumbnail { None, Asked, Loaded, Failed };
    struct Row {
        explicit Row(MediaItem of) : item(std::move(of)) {}
        MediaItem item;
        Thumbnail thumbnail = Thumbnail::None;
        QPixmap pixmap;
    };
    QVariant decoration(Row &row) const;

    const QString firstColumn_;
    const bool thumbnails_;
    QPixmap waiting_, broken_;
    // data() asks for a thumbnail as the view draws its row, so it notes what it asked.
    mutable std::vector<Row> rows_;
    mutable int pending_ = 0;
    mutable bool asked_ = false;
    std::unordered_map<quint32, std::size_t> rowOfId_;
};

// A list of the model's items, a row each, for the music, the videos and the found items.
QTreeView *itemList(MediaModel *model, QWidget *parent);
