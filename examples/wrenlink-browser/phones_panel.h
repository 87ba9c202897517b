// The phones that adb sees, with model, maker, Android version and state; listed through the
// adb queue when asked and every few seconds, so the window never waits for the tool.
#pragma once

#include <QGroupBox>
#include <QTimer>
#include <vector>

#include "records.h"

class AdbQueue;
class QLabel;
class QTableWidget;

class PhonesPanel : public QGroupBox {
    Q_OBJECT
public:
    static constexpr int kRefreshMs = 4000;

    explicit PhonesPanel(AdbQueue *adb, QWidget *parent = nullptr);

    // The selected phone when it is authorised, else the first authorised one; empty when none.
    QString chosenSerial() const;
    const std::vector<Phone> &phones() const { return phones_; }

signals:
    void listed();  // after every listing, also one that found no tool

private:
    void showPhones(const std::vector<Phone> &phones);
    void showMissing(const QString &adbPath);

    AdbQueue *adb_;
    QTableWidget *table_;
    QLabel *note_;
    QTimer refresh_;
    std::vector<Phone> phones_;
};
