// The phone's catalogue in three tabs: images as a grid of thumbnails, music and videos as lists
// with size, date and type. Thumbnails are read on the catalogue's pool as the grid draws them.
#pragma once

#include <QTabWidget>
#include <vector>

#include "records.h"

class Catalogue;
class MediaModel;
class QAbstractItemView;
struct MediaLists;

class MediaPanel : public QTabWidget {
    Q_OBJECT
public:
    explicit MediaPanel(QWidget *parent = nullptr);

    // Null detaches: the lists empty.
    void attach(Catalogue *catalogue);
    std::vector<MediaItem> selectedItems() const;  // in the tab shown
    bool listed() const { return listed_; }
    // Every thumbnail the grid asked for has come, and the grid has drawn them, if it has images.
    bool thumbnailsSettled() const;
    MediaModel *images() const { return models_[0]; }

private:
    void showLists(const MediaLists &lists);
    void clearLists();

    Catalogue *catalogue_ = nullptr;
    MediaModel *models_[3];
    QAbstractItemView *views_[3];
    bool listed_ = false;
};
