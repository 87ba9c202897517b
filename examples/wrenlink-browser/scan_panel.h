// The scan: start, pause, resume, stop, its progress, and the items found as they come.
#pragma once

#include <QGroupBox>
#include <vector>

#include "records.h"

class MediaModel;
class QLabel;
class QProgressBar;
class QPushButton;
class ScanRunner;

class ScanPanel : public QGroupBox {
    Q_OBJECT
public:
    explicit ScanPanel(QWidget *parent = nullptr);

    void attach(ScanRunner *scan);  // null detaches
    void startScan();
    const MediaModel *found() const { return found_; }
    QString summary() const;

private:
    enum class State { Idle, Starting, Running, Paused };
    void setState(State state);
    void showFound(const std::vector<MediaItem> &items, qint64 done, qint64 total);
    void showEnd(quint32 code, const QString &message);

    ScanRunner *scan_ = nullptr;
    QPushButton *start_, *pause_, *resume_, *stop_;
    QProgressBar *progress_;
    QLabel *summary_;
    MediaModel *found_;
};
