// Frees a media list handed over by the library, record by record and each of its three texts,
// with the given release function (the library's WrenlinkFree, or free for records that a raw
// parser made with malloc). For the tests, the fuzzers and the benchmarks alike.
#pragma once

#include "Wrenlink/Wrenlink.h"

namespace wrenlink::support {

inline void free_media_list(__MediaBean *record, void (*release)(void *) = WrenlinkFree) {
    while (record != nullptr) {
        __MediaBean *next = record->next;
        release(record->text1);
        release(record->text2);
        release(record->text3);
        release(record);
        record = next;
    }
}

}  // namespace wrenlink::support
