// Where the agent is: an address and port of this machine, or a port on the selected phone that
// adb forwards to a local port first; and the button that installs the agent on the phone.
#pragma once

#include <QGroupBox>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

class ConnectPanel : public QGroupBox {
    Q_OBJECT
public:
    explicit ConnectPanel(QWidget *parent = nullptr);

    void setTarget(const QString &address, quint16 port, quint16 forwardPort);
    // The button connects or disconnects; `text` says where things stand.
    void showState(bool connected, const QString &text);
    // The install button installs, or removes what it installed.
    void showInstalled(bool installed);

signals:
    // forwardPort 0: connect to address:port directly.
    void connectAsked(const QString &address, quint16 port, quint16 forwardPort);
    void disconnectAsked();
    void installAsked(quint16 controlPort);
    void removeAsked();

private:
    QLineEdit *address_;
    QSpinBox *port_, *forwardPort_;
    QCheckBox *forward_;
    QPushButton *connect_, *install_;
    QLabel *state_;
    bool connected_ = false;
    bool installed_ = false;
};
