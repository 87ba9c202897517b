#include "connect_panel.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

ConnectPanel::ConnectPanel(QWidget *parent)
    : QGroupBox("Agent", parent),
      address_(new QLineEdit("127.0.0.1", this)),
      port_(new QSpinBox(this)),
      forwardPort_(new QSpinBox(this)),
      forward_(new QCheckBox("through adb, to the phone's port", this)),
      connect_(new QPushButton("Connect", this)),
      install_(new QPushButton("Install agent", this)),
      state_(new QLabel("Not connected", this)) {
    port_->setRange(1, 65535);
    port_->setValue(10243);
    forwardPort_->setRange(1, 65535);
    forwardPort_->setValue(10243);
    forwardPort_->setEnabled(false);
    install_->setObjectName("install");
    install_->setToolTip("Pushes the agent built for the selected phone's processor to it, starts it and forwards Port to it");
    state_->setWordWrap(true);

    auto *forwardRow = new QHBoxLayout;
    forwardRow->addWidget(forward_);
    forwardRow->addWidget(forwardPort_);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(install_);
    buttons->addStretch();
    buttons->addWidget(connect_);
    auto *form = new QFormLayout(this);
    form->addRow("Address", address_);
    form->addRow("Port", port_);
    form->addRow(forwardRow);
    form->addRow(state_);
    form->addRow(buttons);

    connect(forward_, &QCheckBox::toggled, forwardPort_, &QSpinBox::setEnabled);
    connect(connect_, &QPushButton::clicked, this, [this] {
        if (connected_) {
            emit disconnectAsked();
            return;
        }
        emit connectAsked(address_->text(), static_cast<quint16>(port_->value()),
                          forward_->isChecked() ? static_cast<quint16>(forwardPort_->value()) : quint16{0});
    });
    connect(install_, &QPushButton::clicked, this, [this] {
        if (installed_) {
            emit removeAsked();
            return;
        }
        emit installAsked(static_cast<quint16>(port_->value()));
    });
}

void ConnectPanel::showInstalled(bool installed) {
    installed_ = installed;
    install_->setText(installed ? "Remove agent" : "Install agent");
}

void ConnectPanel::setTarget(const QString &address, quint16 port, quint16 forwardPort) {
    address_->setText(address);
    port_->setValue(port);
    forward_->setChecked(forwardPort != 0);
    if (forwardPort != 0) forwardPort_->setValue(forwardPort);
}

void ConnectPanel::showState(bool connected, const QString &text) {
    connected_ = connected;
    connect_->setText(connected ? "Disconnect" : "Connect");
    state_->setText(text);
}
