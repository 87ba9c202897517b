// Files between the phone and this computer: the selected media copied into a folder, with a
// progress bar and Cancel; a file sent to the phone, and deleted from it again.
#pragma once

#include <QGroupBox>
#include <functional>
#include <vector>

#include "records.h"

class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class Transfers;

class FilesPanel : public QGroupBox {
    Q_OBJECT
public:
    explicit FilesPanel(QWidget *parent = nullptr);

    void attach(Transfers *transfers);  // null detaches
    // Where "Copy selected" gets its items from.
    std::function<std::vector<MediaItem>()> selection;

    void copy(const std::vector<MediaItem> &items);
    void send(const QString &localPath);
    void cancel();
    void deleteSent();  // the file of the list of sent files that is selected
    void setFolder(const QString &folder);
    QString state() const;

private:
    void setBusy(bool busy, const QString &state);

    Transfers *transfers_ = nullptr;
    QLineEdit *folder_, *phoneFolder_;
    QPushButton *choose_, *copy_, *cancel_, *send_, *delete_;
    QProgressBar *progress_;
    QLabel *state_;
    QListWidget *sent_;
};
