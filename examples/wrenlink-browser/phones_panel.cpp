#include "phones_panel.h"

#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "adb_queue.h"

namespace {

QString stateText(Phone::State state) {
    switch (state) {
    case Phone::State::Authorised: return "authorised";
    case Phone::State::Unauthorised: return "unauthorised";
    case Phone::State::Offline: break;
    }
    return "offline";
}

}  // namespace

PhonesPanel::PhonesPanel(AdbQueue *adb, QWidget *parent)
    : QGroupBox("Phones", parent), adb_(adb), table_(new QTableWidget(0, 5, this)), note_(new QLabel(this)) {
    table_->setHorizontalHeaderLabels({"Serial", "Model", "Maker", "Android", "State"});
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    for (int stretched : {1, 2}) table_->horizontalHeader()->setSectionResizeMode(stretched, QHeaderView::Stretch);
    note_->setWordWrap(true);
    auto *refresh = new QPushButton("Refresh", this);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(table_);
    layout->addWidget(note_);
    layout->addWidget(refresh, 0, Qt::AlignRight);

    connect(refresh, &QPushButton::clicked, adb_, &AdbQueue::listPhones);
    connect(&refresh_, &QTimer::timeout, adb_, &AdbQueue::listPhones);
    connect(adb_, &AdbQueue::phonesListed, this, &PhonesPanel::showPhones);
    connect(adb_, &AdbQueue::adbMissing, this, &PhonesPanel::showMissing);
    refresh_.start(kRefreshMs);
    adb_->listPhones();
}

QString PhonesPanel::chosenSerial() const {
    const int selected = table_->currentRow();
    if (selected >= 0 && selected < static_cast<int>(phones_.size()) &&
        phones_[static_cast<std::size_t>(selected)].state == Phone::State::Authorised)
        return phones_[static_cast<std::size_t>(selected)].serial;
    for (const Phone &phone : phones_) {
        if (phone.state == Phone::State::Authorised) return phone.serial;
    }
    return {};
}

void PhonesPanel::showPhones(const std::vector<Phone> &phones) {
    const QString selected = table_->currentRow() >= 0 ? table_->item(table_->currentRow(), 0)->text() : QString();
    phones_ = phones;
    table_->setRowCount(static_cast<int>(phones.size()));
    for (int row = 0; row < static_cast<int>(phones.size()); ++row) {
        const Phone &phone = phones[static_cast<std::size_t>(row)];
        const QString cells[] = {phone.serial, phone.model, phone.maker, phone.android, stateText(phone.state)};
        for (int column = 0; column < 5; ++column) table_->setItem(row, column, new QTableWidgetItem(cells[column]));
        if (phone.serial == selected) table_->setCurrentCell(row, 0);
    }
    note_->setText(phones.empty() ? "No phone attached." : QString());
    note_->setVisible(phones.empty());
    emit listed();
}

void PhonesPanel::showMissing(const QString &adbPath) {
    phones_.clear();
    table_->setRowCount(0);
    note_->setText("adb is missing: the library looks for it at " + adbPath);
    note_->setVisible(true);
    refresh_.stop();  // the tool does not come by itself
    emit listed();
}
