#include "records.h"

#include <QStringList>
#include <cstring>

std::vector<Phone> phonesFromDeviceList(const char *text) {
    std::vector<Phone> phones;
    for (const QString &record : QString::fromUtf8(text).split(';', Qt::SkipEmptyParts)) {
        const qsizetype dash = record.lastIndexOf('-');
        if (dash <= 0) continue;
        Phone phone;
        phone.serial = record.left(dash);
        const QString state = record.mid(dash + 1);
        phone.state = state == "author"     ? Phone::State::Authorised
                      : state == "unauthor" ? Phone::State::Unauthorised
                                            : Phone::State::Offline;
        phones.push_back(phone);
    }
    return phones;
}

QString fieldText(const char (&field)[32]) {
    return QString::fromUtf8(field, static_cast<qsizetype>(strnlen(field, sizeof field)));
}

std::vector<MediaItem> takeMediaList(MediaItem::Kind kind, __MediaBean &head) {
    // The record is packed: its fields are read by value, never bound to a reference.
    auto text = [](const char *field) { return QString::fromUtf8(field); };
    std::vector<MediaItem> items;
    for (__MediaBean *bean = head.next; bean != nullptr;) {
        items.push_back({kind, bean->value1, text(bean->text1), text(bean->text2), text(bean->text3), bean->value2,
                         static_cast<qint64>(bean->value3)});
        __MediaBean *next = bean->next;
        WrenlinkFree(bean->text1);
        WrenlinkFree(bean->text2);
        WrenlinkFree(bean->text3);
        WrenlinkFree(bean);
        bean = next;
    }
    head.next = nullptr;
    return items;
}

MediaItem foundItemFromText(const char *text) {
    MediaItem item;
    const QString whole = QString::fromUtf8(text);
    const QStringList parts = whole.split('\t');
    if (parts.size() < 4) {
        item.path = item.name = whole;
        return item;
    }
    item.size = parts[0].toULongLong();
    item.modified = parts[1].toLongLong();
    item.mime = parts[2];
    item.path = item.name = parts.mid(3).join('\t');
    return item;
}

QString callFailed(const char *call, AgentStatus status, const QString &about) {
    QString result;
    switch (status) {
    case AgentBadMagic: result = "bad magic in the agent's reply"; break;
    case AgentShortPayload: result = "the agent's reply was cut short"; break;
    case AgentBadCrc: result = "bad CRC in the agent's reply"; break;
    default:
        result = QString("status %1 (%2)").arg(status).arg(QString::fromLocal8Bit(std::strerror(static_cast<int>(status))));
    }
    return QString(call) + (about.isEmpty() ? "" : " " + about) + ": " + result;
}

QString humanSize(quint64 bytes) {
    if (bytes < 1024) return QString("%1 B").arg(bytes);
    if (bytes < 1024 * 1024) return QString("%1 KiB").arg(static_cast<double>(bytes) / 1024, 0, 'f', 1);
    return QString("%1 MiB").arg(static_cast<double>(bytes) / (1024 * 1024), 0, 'f', 1);
}
