#include "media_panel.h"

#include <QListView>
#include <QPushButton>
#include <QTreeView>

#include "agent_catalogue.h"
#include "media_model.h"

namespace {

QListView *thumbnailGrid(QWidget *parent) {
    auto *grid = new QListView(parent);
    grid->setViewMode(QListView::IconMode);
    grid->setIconSize({MediaModel::kThumbnailSide, MediaModel::kThumbnailSide});
    grid->setGridSize({MediaModel::kThumbnailSide + 36, MediaModel::kThumbnailSide + 40});
    grid->setUniformItemSizes(true);  // the grid sizes one item, not every one
    grid->setResizeMode(QListView::Adjust);
    grid->setMovement(QListView::Static);
    grid->setWordWrap(true);
    return grid;
}

}  // namespace

MediaPanel::MediaPanel(QWidget *parent) : QTabWidget(parent) {
    for (int kind = 0; kind < 3; ++kind) {
        models_[kind] = new MediaModel("Name", kind == 0, this);
        if (kind == 0) {
            views_[kind] = thumbnailGrid(this);
            views_[kind]->setModel(models_[kind]);
        } else {
            views_[kind] = itemList(models_[kind], this);
        }
        views_[kind]->setSelectionMode(QAbstractItemView::ExtendedSelection);
        addTab(views_[kind], {});
    }
    models_[0]->wantThumbnail = [this](const MediaItem &item) {
        if (catalogue_ != nullptr) catalogue_->readThumbnail(item.id, item.path, MediaModel::kThumbnailSide);
    };
    clearLists();
    auto *reload = new QPushButton("Reload", this);
    setCornerWidget(reload);
    connect(reload, &QPushButton::clicked, this, [this] {
        if (catalogue_ != nullptr) catalogue_->list();
    });
}

void MediaPanel::attach(Catalogue *catalogue) {
    catalogue_ = catalogue;
    clearLists();
    if (catalogue_ == nullptr) return;
    connect(catalogue_, &Catalogue::listed, this, &MediaPanel::showLists);
    connect(catalogue_, &Catalogue::thumbnailRead, models_[0], &MediaModel::setThumbnail);
}

void MediaPanel::showLists(const MediaLists &lists) {
    const std::pair<const char *, const std::vector<MediaItem> *> kinds[] = {
        {"Images", &lists.images}, {"Music", &lists.music}, {"Videos", &lists.videos}};
    for (int kind = 0; kind < 3; ++kind) {
        models_[kind]->setItems(*kinds[kind].second);
        setTabText(kind, QString("%1 (%2)").arg(kinds[kind].first).arg(kinds[kind].second->size()));
    }
    listed_ = true;
}

void MediaPanel::clearLists() {
    showLists({});
    listed_ = false;
}

std::vector<MediaItem> MediaPanel::selectedItems() const {
    const int kind = currentIndex();
    std::vector<MediaItem> items;
    for (const QModelIndex &index : views_[kind]->selectionModel()->selectedIndexes()) {
        if (index.column() == 0) items.push_back(models_[kind]->item(index.row()));
    }
    return items;
}

bool MediaPanel::thumbnailsSettled() const {
    const MediaModel *grid = models_[0];
    return grid->rowCount() == 0 || (grid->anyThumbnailAsked() && grid->pendingThumbnails() == 0);
}
