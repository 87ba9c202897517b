#include <Wrenlink/Wrenlink.h>
#include <stdio.h>
#include <string.h>

#define WRENLINK_TEXT(x) #x
#define WRENLINK_VERSION_TEXT(a, b, c) WRENLINK_TEXT(a) "." WRENLINK_TEXT(b) "." WRENLINK_TEXT(c)

int main(void) {
    /* The header names the version of the package that installed it (CMake's or pkg-config's). */
    const char *header = WRENLINK_VERSION_TEXT(WRENLINK_VERSION_MAJOR, WRENLINK_VERSION_MINOR, WRENLINK_VERSION_PATCH);
    /* Nothing listens on port 1 of the loopback: the open fails cleanly. */
    NetConnection *c = NetConnectionOpen("127.0.0.1", 1);
    void *block = WrenlinkMalloc(16);
    WrenlinkFree(block);
    printf("consumer: %s, PhoneInfo %zu bytes, header %s, package %s\n", c == NULL ? "no agent" : "agent",
           sizeof(PhoneInfo), header, WRENLINK_PACKAGE_VERSION);
    return c == NULL && block != NULL && strcmp(header, WRENLINK_PACKAGE_VERSION) == 0 ? 0 : 1;
}
