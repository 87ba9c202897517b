#include <Wrenlink/Wrenlink.h>
#include <stdio.h>

int main(void) {
    /* Nothing listens on port 1 of the loopback: the open fails cleanly. */
    NetConnection *c = NetConnectionOpen("127.0.0.1", 1);
    void *block = WrenlinkMalloc(16);
    WrenlinkFree(block);
    printf("consumer: %s, PhoneInfo %zu bytes\n", c == NULL ? "no agent" : "agent", sizeof(PhoneInfo));
    return c == NULL && block != NULL ? 0 : 1;
}
