// What the library hands over, turned into the window's values: phone states and properties,
// media lists, found items, status codes. Pure functions; the only library call here is
// WrenlinkFree, for the records a media list hands over.
#pragma once

#include <Wrenlink/Wrenlink.h>

#include <QString>
#include <vector>

struct Phone {
    enum class State { Authorised, Unauthorised, Offline };
    QString serial, model, maker, android;
    State state = State::Offline;
};

// AdbGetDevicesList's text ("serial-author;serial-unauthor;serial-offline;") as phones with their
// state and no properties. A serial may hold '-': the state follows the last one.
std::vector<Phone> phonesFromDeviceList(const char *text);
// A PhoneInfo field: 32 bytes that need not be terminated.
QString fieldText(const char (&field)[32]);

struct MediaItem {
    enum class Kind { Image, Music, Video, Found };
    Kind kind = Kind::Found;
    quint32 id = 0;
    QString path, name, mime;
    quint64 size = 0;
    qint64 modified = 0;  // seconds since 1970
};

// Takes the records hanging on head.next: copies them, gives each back with WrenlinkFree and
// clears head.next.
std::vector<MediaItem> takeMediaList(MediaItem::Kind kind, __MediaBean &head);
// A scan's found item, "<size>\t<mtime>\t<MIME type>\t<phone path>", named by its path. A text of
// another shape is kept whole as the path.
MediaItem foundItemFromText(const char *text);

// "NMCListImages: status 2 (No such file or directory)", for the status line; `about` (a path)
// goes after the call's name.
QString callFailed(const char *call, AgentStatus status, const QString &about = {});
QString humanSize(quint64 bytes);
