#include "media_model.h"

#include <QDateTime>
#include <QPainter>
#include <QTreeView>

namespace {

QPixmap placeholder(const QString &mark) {
    QPixmap pixmap(MediaModel::kThumbnailSide, MediaModel::kThumbnailSide);
    pixmap.fill(QColor(0xe4, 0xe6, 0xea));
    QPainter painter(&pixmap);
    painter.setPen(QColor(0x80, 0x86, 0x90));
    painter.drawText(pixmap.rect(), Qt::AlignCenter, mark);
    return pixmap;
}

}  // namespace

MediaModel::MediaModel(const QString &firstColumn, bool thumbnails, QObject *parent)
    : QAbstractTableModel(parent), firstColumn_(firstColumn), thumbnails_(thumbnails) {
    if (thumbnails_) {
        waiting_ = placeholder("…");
        broken_ = placeholder("?");
    }
}

void MediaModel::setItems(std::vector<MediaItem> items) {
    beginResetModel();
    rows_.clear();
    rowOfId_.clear();
    pending_ = 0;
    asked_ = false;
    for (MediaItem &item : items) {
        rowOfId_[item.id] = rows_.size();
        rows_.emplace_back(std::move(item));
    }
    endResetModel();
}

void MediaModel::append(const std::vector<MediaItem> &items) {
    if (items.empty()) return;
    const int first = static_cast<int>(rows_.size());
    beginInsertRows({}, first, first + static_cast<int>(items.size()) - 1);
    for (const MediaItem &item : items) rows_.emplace_back(item);
    endInsertRows();
}

void MediaModel::setThumbnail(quint32 id, const QImage &image) {
    const auto found = rowOfId_.find(id);
    if (found == rowOfId_.end()) return;  // a thumbnail of a list replaced since
    Row &row = rows_[found->second];
    if (row.thumbnail != Thumbnail::Asked) return;
    --pending_;
    row.thumbnail = image.isNull() ? Thumbnail::Failed : Thumbnail::Loaded;
    if (!image.isNull()) row.pixmap = QPixmap::fromImage(image);
    const QModelIndex at = index(static_cast<int>(found->second), 0);
    emit dataChanged(at, at, {Qt::DecorationRole});
}

int MediaModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : static_cast<int>(rows_.size()); }

int MediaModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : 4; }

QVariant MediaModel::data(const QModelIndex &index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    Row &row = rows_[static_cast<std::size_t>(index.row())];
    if (role == Qt::DecorationRole && index.column() == 0 && thumbnails_) return decoration(row);
    if (role == Qt::ToolTipRole) return row.item.path;
    if (role == Qt::TextAlignmentRole && index.column() == 1) return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole) return {};
    switch (index.column()) {
    case 0: return row.item.name;
    case 1: return humanSize(row.item.size);
    case 2: return QDateTime::fromSecsSinceEpoch(row.item.modified).toString("yyyy-MM-dd hh:mm");
    default: return row.item.mime;
    }
}

QVariant MediaModel::decoration(Row &row) const {
    switch (row.thumbnail) {
    case Thumbnail::Loaded: return row.pixmap;
    case Thumbnail::Failed: return broken_;
    case Thumbnail::Asked: return waiting_;
    case Thumbnail::None: break;
    }
    row.thumbnail = Thumbnail::Asked;
    ++pending_;
    asked_ = true;
    if (wantThumbnail) wantThumbnail(row.item);
    return waiting_;
}

QVariant MediaModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    const QString names[] = {firstColumn_, "Size", "Modified", "Type"};
    return section >= 0 && section < 4 ? names[section] : QVariant();
}

QTreeView *itemList(MediaModel *model, QWidget *parent) {
    auto *list = new QTreeView(parent);
    list->setRootIsDecorated(false);
    list->setUniformRowHeights(true);  // a million rows: one height asked, not a million
    list->setModel(model);
    const int widths[] = {400, 80, 130};
    for (int column = 0; column < 3; ++column) list->setColumnWidth(column, widths[column]);
    return list;
}
