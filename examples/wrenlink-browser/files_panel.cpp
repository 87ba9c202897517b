#include "files_panel.h"

#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>

#include "agent_transfers.h"

FilesPanel::FilesPanel(QWidget *parent)
    : QGroupBox("Files", parent),
      folder_(new QLineEdit(QDir::homePath(), this)),
      phoneFolder_(new QLineEdit("/Download", this)),
      choose_(new QPushButton("…", this)),
      copy_(new QPushButton("Copy selected", this)),
      cancel_(new QPushButton("Cancel", this)),
      send_(new QPushButton("Send a file…", this)),
      delete_(new QPushButton("Delete from the phone", this)),
      progress_(new QProgressBar(this)),
      state_(new QLabel(this)),
      sent_(new QListWidget(this)) {
    progress_->setRange(0, 1000);
    progress_->setValue(0);
    sent_->setMaximumHeight(70);
    state_->setWordWrap(true);

    auto *folderRow = new QHBoxLayout;
    folderRow->addWidget(folder_);
    folderRow->addWidget(choose_);
    auto *copyRow = new QHBoxLayout;
    copyRow->addWidget(copy_);
    copyRow->addWidget(progress_, 1);
    copyRow->addWidget(cancel_);
    auto *sendRow = new QHBoxLayout;
    sendRow->addWidget(phoneFolder_);
    sendRow->addWidget(send_);
    auto *form = new QFormLayout(this);
    form->addRow("To folder", folderRow);
    form->addRow(copyRow);
    form->addRow(state_);
    form->addRow("To phone", sendRow);
    form->addRow(sent_);
    form->addRow(delete_);

    connect(choose_, &QPushButton::clicked, this, [this] {
        const QString folder = QFileDialog::getExistingDirectory(this, "Copy into", folder_->text());
        if (!folder.isEmpty()) folder_->setText(folder);
    });
    connect(copy_, &QPushButton::clicked, this, [this] {
        if (selection) copy(selection());
    });
    connect(cancel_, &QPushButton::clicked, this, &FilesPanel::cancel);
    connect(send_, &QPushButton::clicked, this, [this] {
        const QString file = QFileDialog::getOpenFileName(this, "Send to the phone");
        if (!file.isEmpty()) send(file);
    });
    connect(delete_, &QPushButton::clicked, this, &FilesPanel::deleteSent);
    setBusy(false, {});
}

void FilesPanel::attach(Transfers *transfers) {
    transfers_ = transfers;
    sent_->clear();
    setBusy(false, {});
    if (transfers_ == nullptr) return;
    connect(transfers_, &Transfers::progressed, this, [this](quint64 done, quint64 total) {
        progress_->setValue(total == 0 ? progress_->maximum() : static_cast<int>(done * 1000 / total));
    });
    connect(transfers_, &Transfers::copied, this, [this](const QStringList &paths) {
        setBusy(false, QString("Copied %1 file(s) into %2").arg(paths.size()).arg(folder_->text()));
    });
    connect(transfers_, &Transfers::sent, this, [this](const QString &phonePath) {
        sent_->addItem(phonePath);
        sent_->setCurrentRow(sent_->count() - 1);
        setBusy(false, "Sent " + phonePath);
    });
    connect(transfers_, &Transfers::deleted, this, [this](const QString &phonePath) {
        for (QListWidgetItem *item : sent_->findItems(phonePath, Qt::MatchExactly)) delete item;
        setBusy(false, "Deleted " + phonePath);
    });
    connect(transfers_, &Transfers::cancelled, this, [this] { setBusy(false, "Cancelled"); });
    connect(transfers_, &Transfers::failed, this, [this](const QString &what) { setBusy(false, what); });
}

void FilesPanel::copy(const std::vector<MediaItem> &items) {
    if (transfers_ == nullptr || items.empty()) return;
    setBusy(true, QString("Copying %1 file(s)").arg(items.size()));
    transfers_->copyToComputer(items, folder_->text());
}

void FilesPanel::send(const QString &localPath) {
    if (transfers_ == nullptr) return;
    setBusy(true, "Sending " + localPath);
    transfers_->sendToPhone(localPath, phoneFolder_->text());
}

void FilesPanel::cancel() {
    if (transfers_ != nullptr) transfers_->cancel();
}

void FilesPanel::deleteSent() {
    if (transfers_ == nullptr || sent_->currentItem() == nullptr) return;
    setBusy(true, "Deleting " + sent_->currentItem()->text());
    transfers_->deleteOnPhone(sent_->currentItem()->text());
}

void FilesPanel::setFolder(const QString &folder) { folder_->setText(folder); }

QString FilesPanel::state() const { return state_->text(); }

void FilesPanel::setBusy(bool busy, const QString &state) {
    const bool ready = transfers_ != nullptr && !busy;
    for (QPushButton *button : {copy_, send_, delete_}) button->setEnabled(ready);
    cancel_->setEnabled(busy);
    if (busy) progress_->setValue(0);
    state_->setText(state);
}
