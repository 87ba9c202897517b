#include "scan_panel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeView>
#include <QVBoxLayout>

#include "agent_scan.h"
#include "media_model.h"

ScanPanel::ScanPanel(QWidget *parent)
    : QGroupBox("Scan", parent),
      start_(new QPushButton("Start", this)),
      pause_(new QPushButton("Pause", this)),
      resume_(new QPushButton("Resume", this)),
      stop_(new QPushButton("Stop", this)),
      progress_(new QProgressBar(this)),
      summary_(new QLabel(this)),
      found_(new MediaModel("Path", false, this)) {
    QTreeView *list = itemList(found_, this);
    progress_->setRange(0, 1000);
    progress_->setValue(0);
    progress_->setFormat("%p%");

    auto *buttons = new QHBoxLayout;
    for (QPushButton *button : {start_, pause_, resume_, stop_}) {
        button->setObjectName(button->text().toLower());
        buttons->addWidget(button);
    }
    buttons->addWidget(progress_, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(buttons);
    layout->addWidget(summary_);
    layout->addWidget(list);

    connect(start_, &QPushButton::clicked, this, &ScanPanel::startScan);
    connect(pause_, &QPushButton::clicked, this, [this] { scan_->pause(); });
    connect(resume_, &QPushButton::clicked, this, [this] { scan_->resume(); });
    connect(stop_, &QPushButton::clicked, this, [this] { scan_->stop(); });
    setState(State::Idle);
}

void ScanPanel::attach(ScanRunner *scan) {
    scan_ = scan;
    setState(State::Idle);
    if (scan_ == nullptr) return;
    connect(scan_, &ScanRunner::started, this, [this] { setState(State::Running); });
    connect(scan_, &ScanRunner::paused, this, [this] { setState(State::Paused); });
    connect(scan_, &ScanRunner::resumed, this, [this] { setState(State::Running); });
    connect(scan_, &ScanRunner::found, this, &ScanPanel::showFound);
    connect(scan_, &ScanRunner::finished, this, &ScanPanel::showEnd);
}

void ScanPanel::startScan() {
    if (scan_ == nullptr || scan_->running()) return;
    found_->setItems({});
    progress_->setValue(0);
    summary_->setText("Starting the scan");
    setState(State::Starting);
    scan_->start();
}

QString ScanPanel::summary() const { return summary_->text(); }

void ScanPanel::setState(State state) {
    start_->setEnabled(scan_ != nullptr && state == State::Idle);
    pause_->setEnabled(state == State::Running);
    resume_->setEnabled(state == State::Paused);
    stop_->setEnabled(state == State::Running || state == State::Paused);
}

void ScanPanel::showFound(const std::vector<MediaItem> &items, qint64 done, qint64 total) {
    found_->append(items);
    if (total > 0) progress_->setValue(static_cast<int>(done * 1000 / total));
    QString text = QString("%1 found").arg(found_->rowCount());
    if (total >= 0) text += QString(", %1 of %2 files").arg(done).arg(total);
    summary_->setText(text);
}

void ScanPanel::showEnd(quint32 code, const QString &message) {
    if (code == ScanRunner::kComplete) progress_->setValue(progress_->maximum());
    summary_->setText(message);
    setState(State::Idle);
}
