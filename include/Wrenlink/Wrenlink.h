/*
 * Wrenlink: reach Android phones from a desktop application.
 *
 * The flat C interface of libWrenlink. It has two halves that never call each other:
 *
 *   - the adb half (Adb*, AndGetAdbFullpath, KillInstallDriver) runs the `adb` tool found at
 *     <folder of the executable>/../Resources/adb and reads what it prints;
 *   - the agent half (NetConnection*, TestPing, NDD*, NMC*, NFC*) speaks a little-endian
 *     request/reply protocol over TCP to an agent on the phone, through ports that adb forwards.
 *
 * Conventions
 *   - Nothing is thrown and nothing is configured. Every operation blocks its caller until it is
 *     done, with no time limit of its own.
 *   - Output buffers of the adb half carry no size argument; their size is part of the contract and
 *     is stated per operation. Zero them before the call.
 *   - Yes/no answers are single bytes that an operation only ever sets to 1: clear them first.
 *   - Blocks handed to the caller (PhoneInfo arrays, package lists, __MediaBean records and their
 *     texts) come from malloc; give them back with WrenlinkFree.
 *   - Agent operations return an AgentStatus: 0, one of the three library codes below, an errno
 *     value, or the agent's own status, passed on unchanged.
 *
 * For application developers
 *   - Threads. Every call runs on its caller's thread. Tool runs (the Adb* operations) are one at a
 *     time in the whole process, so a long transfer holds up every other run; root shells are one
 *     at a time among themselves. On a connection the file operations (NFC*) lock each exchange;
 *     TestPing, NMC* and NDD* lock nothing: never overlap them with another exchange on the same
 *     connection (the scan's control calls during NDDStartScan excepted).
 *   - Time limits. None. To give up on an agent call, call NetConnectionClose from another thread
 *     (a watchdog): the waiting call returns an error at once, and the handle is dead from then on.
 *   - Cancellation. A thread cancelled (deferred) inside any call unwinds out of it: locks are
 *     released, descriptors closed, a tool child is killed and reaped. This needs a C library that
 *     unwinds cancelled threads (glibc). A connection whose exchange was cut is out of step: close
 *     it. Asynchronous cancellation is not supported.
 *   - Signals. Install handlers with SA_RESTART. Without it, a signal that interrupts an agent
 *     receive fails it with EINTR (sends are retried): the file operations (an open excepted)
 *     store EINTR and refuse every later call on that connection, as do the scan operations (a
 *     running scan's loop ends with onCode(22)); the media operations keep no error but are then
 *     out of step with their replies (the next list may return the previous request's). Either
 *     way, open a new connection. Tool runs and root shells are not disturbed: their waits keep
 *     their whole length. The library never raises SIGPIPE and signals its tool children through a
 *     pidfd where Linux has one, so a host that reaps every child (SIGCHLD) or ignores SIGCHLD is
 *     fine.
 *   - Output. The library writes these lines to whatever holds fds 1 and 2. On stdout:
 *     "NetConnectionSend:<sent>/<length>(<reason>)" when a send fails; a line when the first send of
 *     NFCFileRefWrite comes back short; "AdbPushFile:<command line>" on every AdbPushFile; a line
 *     when AdbRereshDevInfo finds its phone authorised; "pipe faile:<errno> " when AdbRootShell gets
 *     no pipe; "_NSGetExecutablePath fail....." when the executable's path can't be read. On stderr:
 *     perror's "inet_pton" and "connect" from NetConnectionOpen, "fcntl" from AdbRootShell, and the
 *     runner's complaints ("File <path> was not found!", "File <path> is not excutable!", "create
 *     pipe failed!", "end------create pipe failed!", "launch of <path> failed: <reason>"). The
 *     root shell's tool writes its own stderr there too.
 *
 * The header compiles as C99 and as C++.
 */
#ifndef WRENLINK_WRENLINK_H
#define WRENLINK_WRENLINK_H

/* The version of this header and of the library. The build stops when these differ from the
 * project's version, so the header an application compiles against names the library it gets.
 * While the major version is 0, a new minor version may change the interface. */
#define WRENLINK_VERSION_MAJOR 0
#define WRENLINK_VERSION_MINOR 1
#define WRENLINK_VERSION_PATCH 0

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#if defined(WRENLINK_BUILDING)
#define WRENLINK_API __attribute__((visibility("default")))
#else
#define WRENLINK_API
#endif

#ifdef __cplusplus
#define WRENLINK_STATIC_ASSERT(cond, name) static_assert(cond, #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define WRENLINK_STATIC_ASSERT(cond, name) _Static_assert(cond, #name)
#else
#define WRENLINK_STATIC_ASSERT(cond, name) typedef char wrenlink_check_##name[(cond) ? 1 : -1]
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------ */
/* Records that cross the boundary. Both are byte-packed: declare them the same way.            */
/* ------------------------------------------------------------------------------------------ */

#pragma pack(push, 1)

/* One phone, as AdbGetPhoneList and AdbRereshDevInfo fill it. Text fields shorter than 32 bytes
 * are zero-filled; a text of 32 bytes or more fills the field and has no terminator. */
typedef struct PhoneInfo {
    char reserved[32];     /* always zero in records the library makes */
    char softVersion[32];  /* ro.build.version.release */
    char manufacturer[32]; /* ro.product.manufacturer */
    char productModel[32]; /* ro.product.model */
    char serial[32];       /* as adb prints it; the key by which a phone is found */
    uint8_t authorized;    /* 1: state "device", 0: "unauthorized" */
    uint8_t present;       /* 1: the phone stands in adb's list */
} PhoneInfo;

/* One media item of the phone's catalogue, a node of a singly linked list. Every record after
 * the caller's head and each of its three texts is a malloc block of its own. */
typedef struct __MediaBean {
    uint32_t value1;
    char *text1;
    uint64_t value2;
    char *text2;
    uint64_t value3;
    char *text3;
    struct __MediaBean *next;
} __MediaBean;

#pragma pack(pop)

WRENLINK_STATIC_ASSERT(sizeof(PhoneInfo) == 162, phone_info_size);
WRENLINK_STATIC_ASSERT(offsetof(PhoneInfo, reserved) == 0, phone_info_reserved);
WRENLINK_STATIC_ASSERT(offsetof(PhoneInfo, softVersion) == 32, phone_info_soft_version);
WRENLINK_STATIC_ASSERT(offsetof(PhoneInfo, manufacturer) == 64, phone_info_manufacturer);
WRENLINK_STATIC_ASSERT(offsetof(PhoneInfo, productModel) == 96, phone_info_product_model);
WRENLINK_STATIC_ASSERT(offsetof(PhoneInfo, serial) == 128, phone_info_serial);
WRENLINK_STATIC_ASSERT(offsetof(PhoneInfo, authorized) == 160, phone_info_authorized);
WRENLINK_STATIC_ASSERT(offsetof(PhoneInfo, present) == 161, phone_info_present);

WRENLINK_STATIC_ASSERT(sizeof(void *) == 8, sixty_four_bit_pointers);
WRENLINK_STATIC_ASSERT(sizeof(__MediaBean) == 52, media_bean_size);
WRENLINK_STATIC_ASSERT(offsetof(__MediaBean, value1) == 0, media_bean_value1);
WRENLINK_STATIC_ASSERT(offsetof(__MediaBean, text1) == 4, media_bean_text1);
WRENLINK_STATIC_ASSERT(offsetof(__MediaBean, value2) == 12, media_bean_value2);
WRENLINK_STATIC_ASSERT(offsetof(__MediaBean, text2) == 20, media_bean_text2);
WRENLINK_STATIC_ASSERT(offsetof(__MediaBean, value3) == 28, media_bean_value3);
WRENLINK_STATIC_ASSERT(offsetof(__MediaBean, text3) == 36, media_bean_text3);
WRENLINK_STATIC_ASSERT(offsetof(__MediaBean, next) == 44, media_bean_next);

/* ------------------------------------------------------------------------------------------ */
/* Results of the agent half                                                                    */
/* ------------------------------------------------------------------------------------------ */

typedef uint32_t AgentStatus;

#define AgentSuccess ((AgentStatus)0u)
/* A reply header arrived whole, but its magic is wrong. */
#define AgentBadMagic ((AgentStatus)0xE0000001u)
/* A reply's payload did not arrive in full (or was malformed); NFCFileRefWrite also reports a
 * short reply header this way. */
#define AgentShortPayload ((AgentStatus)0xE0000002u)
/* The CRC of a reply payload does not match its header (open, tell and seek only). */
#define AgentBadCrc ((AgentStatus)0xE0000003u)

/* ------------------------------------------------------------------------------------------ */
/* Net connection and ping                                                                      */
/* ------------------------------------------------------------------------------------------ */

/* One TCP connection to the agent; opaque. Made by NetConnectionOpen, ended by NetConnectionClose.
 * The record itself is never freed, so a handle used after its close fails instead of touching
 * freed memory. */
typedef struct NetConnection NetConnection;

/* Connects to a dotted IPv4 address and port (low 16 bits used). Blocks in connect with no limit.
 * Returns a new connection, or NULL when the socket, the address text or the connect fails. */
WRENLINK_API NetConnection *NetConnectionOpen(const char *address, uint32_t port);

/* Sends all `length` bytes. Returns the count sent; -1 at once (errno = the stored error) when an
 * earlier send failed on this connection; 0 for length <= 0. A transfer that breaks off returns
 * the count so far and stores errno (22 if errno was 0) as the connection's send error.
 * Never raises SIGPIPE. */
WRENLINK_API int32_t NetConnectionSend(NetConnection *conn, const void *data, int32_t length, int32_t flags);

/* Receives exactly `length` bytes. Returns `length`; 0 when the peer closed first (errno is then
 * ECONNRESET) or length <= 0; -1 on an error. A partial count is never returned. */
WRENLINK_API int32_t NetConnectionRecv(NetConnection *conn, void *buffer, int32_t length, int32_t flags);

/* Has no effect; always 0. Connections have no time limit. */
WRENLINK_API int32_t NetConnectionSetTimeout(NetConnection *conn, int32_t milliseconds);

/* Closes the socket once and clears both sticky errors. NULL and a second close do nothing. Safe
 * from another thread while an exchange waits on the connection: that exchange fails at once. */
WRENLINK_API void NetConnectionClose(NetConnection *conn);

/* The connection's lock, taken by the remote file operations around each exchange. */
WRENLINK_API void NetConnectionLock(NetConnection *conn);
WRENLINK_API void NetConnectionUnlock(NetConnection *conn);

/* Pings the agent. 0: answered 00 00 00 01; -2: an earlier send failed on this connection;
 * -3: the receive failed with an error; -4: a wrong answer, or the peer closed. */
WRENLINK_API int32_t TestPing(NetConnection *conn);

/* ------------------------------------------------------------------------------------------ */
/* Disk discovery scan                                                                          */
/* ------------------------------------------------------------------------------------------ */

/* `item` is a NUL-terminated text in the loop's buffer, valid only during the call. */
typedef void (*NDDFoundItemCallback)(const char *item, uint64_t userValue);
/* A code event; 22 when the event stream broke before the scan finished. */
typedef void (*NDDCodeCallback)(uint32_t code, uint64_t userValue);
typedef void (*NDDProgressCallback)(int64_t done, int64_t total, uint64_t userValue);

/* Starts a scan and runs its event loop on the calling thread until the agent closes the event
 * connection (127.0.0.1:10244). `unused` is not read and may be NULL. Returns the agent's refusal,
 * a transfer error or AgentBadMagic before the loop; 0 once the loop has run. The outcome of the
 * scan reaches the callbacks only: a stream that ends before the scan finished (no code event, and
 * no progress with done >= total), or an event connection that cannot be opened, gives onCode(22).
 * A found item longer than 2048 bytes arrives as its first 2048, a code payload longer than 4
 * bytes as its first 4. NULL callbacks are skipped. The event connection is closed when the loop
 * ends. */
WRENLINK_API AgentStatus NDDStartScan(NetConnection *conn, const char *unused, NDDFoundItemCallback onFoundItem,
                                      NDDCodeCallback onCode, NDDProgressCallback onProgress, uint64_t userValue);
/* Control requests on the control connection; callable from another thread or from a callback
 * while NDDStartScan runs, but never two at once on one connection (nothing here locks). Each
 * returns the agent's status. A failed send or reply receive is stored and returned by every later
 * scan and media operation on the connection. A NULL connection or text gives EINVAL. */
WRENLINK_API AgentStatus NDDStopScan(NetConnection *conn);
WRENLINK_API AgentStatus NDDPauseScan(NetConnection *conn);
WRENLINK_API AgentStatus NDDResumeScan(NetConnection *conn);
WRENLINK_API AgentStatus NDDEraseFile(NetConnection *conn, const char *path);

/* ------------------------------------------------------------------------------------------ */
/* Media catalogue                                                                              */
/* ------------------------------------------------------------------------------------------ */

/* List operations hang the items on head->next (only when the list is not empty; the head's other
 * fields are never written) and store their number in *count. On any failure neither is touched:
 * a payload that does not end exactly on an item gives AgentShortPayload, a failed allocation
 * ENOMEM. The caller owns every record and text: free each with WrenlinkFree. No media operation
 * locks or stores an error of its own; a NULL argument gives EINVAL. */
WRENLINK_API AgentStatus NMCListImages(NetConnection *conn, __MediaBean *head, uint32_t *count);
WRENLINK_API AgentStatus NMCListMusics(NetConnection *conn, __MediaBean *head, uint32_t *count);
WRENLINK_API AgentStatus NMCListVideo(NetConnection *conn, __MediaBean *head, uint32_t *count);
/* Add and del send the text (without its NUL) and return the agent's status. */
WRENLINK_API AgentStatus NMCAddImage(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCDelImage(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCAddMusic(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCDelMusic(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCAddIVideo(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCDelIVideo(NetConnection *conn, const char *text);

/* ------------------------------------------------------------------------------------------ */
/* Remote files and paths                                                                       */
/* ------------------------------------------------------------------------------------------ */

/* One open file on the phone; opaque. Made by NFCFileRefOpen, released by NFCFileRefClose.
 *
 * Each operation is one exchange under the connection's lock, so threads may share a connection
 * (a handle belongs to one thread at a time). A failed transfer, a bad magic, a short payload or a
 * bad CRC is stored and returned by every later file or path operation on the connection, except
 * after NFCFileRefOpen, which stores nothing. A failed exchange never returns 0 (a closed stream
 * gives ECONNRESET). A reply payload that cannot be allocated is read and dropped: ENOMEM. A NULL
 * handle, text or out-parameter gives EINVAL with nothing sent. */
typedef struct NFCFileRef NFCFileRef;

/* Opens `path` with an fopen-style `mode`. Stores a new handle (position 0) in *ref, or NULL. */
WRENLINK_API AgentStatus NFCFileRefOpen(NetConnection *conn, const char *path, const char *mode, NFCFileRef **ref);
/* *length in: the count asked for and the capacity of `buffer`; out: the count received.
 * On failure buffer, *length and the position are untouched; a reply larger than the count asked
 * for gives EMSGSIZE (its bytes are read and dropped as they come, never held). */
WRENLINK_API AgentStatus NFCFileRefRead(NetConnection *conn, NFCFileRef *ref, void *buffer, int32_t *length);
/* Writes `length` bytes at the handle's position; on success the position moves by `length`. */
WRENLINK_API AgentStatus NFCFileRefWrite(NetConnection *conn, NFCFileRef *ref, const void *data, int32_t length);
/* Stores the agent's idea of the position in *agentPosition; the handle's position is untouched. */
WRENLINK_API AgentStatus NFCFileRefTell(NetConnection *conn, NFCFileRef *ref, int64_t *agentPosition);
/* Moves the remote position (whence as the agent defines it) and refreshes the handle's
 * position by a tell, or to `offset` when the tell fails. */
WRENLINK_API AgentStatus NFCFileRefSeek(NetConnection *conn, NFCFileRef *ref, int64_t offset, int32_t whence);
/* Closes the remote file. Once past the connection's error gate the handle is released, whatever
 * the agent answers. */
WRENLINK_API AgentStatus NFCFileRefClose(NetConnection *conn, NFCFileRef *ref);
WRENLINK_API AgentStatus NFCFileRefDelete(NetConnection *conn, const char *path);
WRENLINK_API AgentStatus NFCFileRefMkDir(NetConnection *conn, const char *path);
/* Asks the agent whether `path` is accessible; the agent decides what 0 means. */
WRENLINK_API AgentStatus NFCFileRefAccess(NetConnection *conn, const char *path);

/* ------------------------------------------------------------------------------------------ */
/* The adb tool                                                                                 */
/* ------------------------------------------------------------------------------------------ */

/* Runs adb with the blank-separated arguments of `commandLine` ("..." groups blanks into one
 * argument) and copies stdout then stderr into `output`: at most outputSize - 1 bytes, terminated
 * when shorter; the rest of what the tool prints is read and dropped. With isWaitExit false the
 * tool gets one second, is then terminated (and killed half a second later if still there), and
 * the text is empty. Always 0; a tool that cannot be run gives the empty text. */
WRENLINK_API int32_t AdbCommand(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit);
/* Runs `adb -s <serial> shell <shellCommand>`; `output` must hold 2048 bytes and is written only
 * when the text is not empty. 1 after a run; -1 when a pointer is null. */
WRENLINK_API int32_t AdbShellCommand(const char *serial, const char *shellCommand, char *output, bool isWaitExit);

/* Kills (signal 9) every process whose command line holds "adb", except the caller. 0, or 1 when
 * the process list cannot be had. */
WRENLINK_API int32_t AdbKillOtherADB(void);
/* Runs `adb kill-server`, then `adb start-server`. Always 0. */
WRENLINK_API int32_t AdbRestartAdb(void);
/* Runs `adb -s <serial> forward tcp:<localPort> tcp:<phonePort>`. Always 0: a refused forward
 * shows only when the connection fails. */
WRENLINK_API int32_t AdbForward(const char *serial, uint32_t localPort, uint32_t phonePort);
/* The tool's full path, in thread-local storage valid until the next call on the same thread. */
WRENLINK_API const char *AndGetAdbFullpath(void);
/* Has no effect. */
WRENLINK_API void KillInstallDriver(void);

/* Runs one line in a root shell: `adb shell`, then "su" unless the prompt shows '#', then
 * `commandLine` as it stands. `output` (2048 bytes) receives the text after the line, at most
 * 2047 bytes. `unused` is not read. Always 0. Takes at least half a second. Waits for the shell's
 * first text without limit, unless the shell has exited. */
WRENLINK_API int32_t AdbRootShell(const char *unused, const char *commandLine, char *output);
/* Sets *isRoot to 1 when the phone's shell runs as root, else 0. 0: stored; 1: the phone was not
 * found; -1: serial is NULL. */
WRENLINK_API int32_t AdbIsAdbRoot(const char *serial, uint8_t *isRoot);

/* ------------------------------------------------------------------------------------------ */
/* Phones                                                                                       */
/* ------------------------------------------------------------------------------------------ */

/* Writes "serial-author;", "serial-offline;" or "serial-unauthor;" per phone into `output`
 * (2048 bytes). 0; -1 when adb's text holds "error" or "fail" (output untouched). */
WRENLINK_API int32_t AdbGetDevicesList(char *output);
/* Stores a malloc'd array of *count records in *phones (free with WrenlinkFree; stored also when
 * the count is 0). Authorised phones get their three properties read. Always 0. Out of memory
 * it stores NULL and 0. */
WRENLINK_API int32_t AdbGetPhoneList(PhoneInfo **phones, uint32_t *count);
/* Refreshes the record whose `serial` the caller filled: `present`, `authorized` and, for an
 * authorised phone, the properties. 1 when adb gave no list at all, otherwise 0. */
WRENLINK_API int32_t AdbRereshDevInfo(PhoneInfo *phone);
/* Property reads into a 32-byte field; the field reads as the value's first line.
 * 0 done; 1 the phone was not found (field untouched); -1 both pointers NULL. */
WRENLINK_API int32_t AdbGetPhoneSoftVersion(const char *serial, char *version);
WRENLINK_API int32_t AdbGetPhoneProductModel(const char *serial, char *model);
WRENLINK_API int32_t AdbGetPhoneManufacture(const char *serial, char *manufacturer);
/* Has no effect; always 0. */
WRENLINK_API int32_t AdbGetPhoneName(void);

/* ------------------------------------------------------------------------------------------ */
/* Files on the phone. Results: -1 a null argument (nothing run); 0 clean (or the phone was not */
/* found); 1 a failure text in adb's output; 2 a failure text with "Permission denied"          */
/* (AdbMakeDirectory, AdbPushFile, AdbPullFile only).                                           */
/* ------------------------------------------------------------------------------------------ */

/* Root-shell operations: they go to the phone that adb picks by itself; `serial` is only checked. */
WRENLINK_API int32_t AdbRenameFile(const char *serial, const char *oldPath, const char *newPath);
WRENLINK_API int32_t AdbRemoveFile(const char *serial, const char *path);
WRENLINK_API int32_t AdbRemoveDirectory(const char *serial, const char *path);
WRENLINK_API int32_t AdbMakeDirectory(const char *serial, const char *path);
WRENLINK_API int32_t AdbPushFile(const char *serial, const char *localPath, const char *phonePath);
/* Copies through a temporary file on the phone; the result judges the removal of that copy. */
WRENLINK_API int32_t AdbPullFile(const char *serial, const char *phonePath, const char *localPath);
/* Direct transfers that judge nothing: -1 null serial, else 0. */
WRENLINK_API int32_t AdbPushFileEx(const char *serial, const char *localPath, const char *phonePath);
WRENLINK_API int32_t AdbPullFileEx(const char *serial, const char *phonePath, const char *localPath);
/* Has no effect; always 0. */
WRENLINK_API int32_t AdbGetFileInfo(void);

/* ------------------------------------------------------------------------------------------ */
/* Packages                                                                                     */
/* ------------------------------------------------------------------------------------------ */

/* -1 a null argument; 0 the phone was not found; 1 done (or a failure text without "Permission
 * denied"); 2 a failure text with "Permission denied". */
WRENLINK_API int32_t AdbInstallPackage(const char *serial, const char *packagePath);
WRENLINK_API int32_t AdbUninstallPackage(const char *serial, const char *packageName);
/* Third-party / system package lists as raw text (at most 2047 bytes) in a malloc block that the
 * caller frees with WrenlinkFree; *length excludes the terminator. Always 0. A null argument runs
 * nothing; out of memory it stores NULL and 0. */
WRENLINK_API int32_t AdbListPackege3(const char *serial, char **text, uint32_t *length);
WRENLINK_API int32_t AdbListPackegeSys(const char *serial, char **text, uint32_t *length);
/* Sets *exists to 1 when `pm path` names an .apk; otherwise leaves it alone. 0. */
WRENLINK_API int32_t AdbCheckPackageApkExist(const char *serial, const char *packageName, uint8_t *exists);
/* Sets *installed to 1 when the phone lists exactly one package matching `packageName`. 0. */
WRENLINK_API int32_t AdbCheckAppInstalled(const char *serial, const char *packageName, uint8_t *installed);
/* Copies the text behind the first `key` in `dumpsys package` up to the line end into `value`
 * (2048 bytes). 0; -2 when the key is not found. */
WRENLINK_API int32_t AdbGetPackageProp(const char *serial, const char *packageName, const char *key, char *value);

/* ------------------------------------------------------------------------------------------ */
/* Activities                                                                                   */
/* ------------------------------------------------------------------------------------------ */

/* Writes the focused activity's component into `name` (2048 bytes). 0; -1 none found. */
WRENLINK_API int32_t AdbGetTopActivity(const char *serial, char *name);
/* `am start -n <component>`. 0; -1 when the phone did not say "Starting: Intent". */
WRENLINK_API int32_t AdbStartActivity(const char *serial, const char *component);
/* `am force-stop <package>`. Always 0. */
WRENLINK_API int32_t AdbForceStopApp(const char *serial, const char *packageName);
/* Have no effect; always 0. */
WRENLINK_API int32_t AdbStartService(void);
WRENLINK_API int32_t AdbStopService(void);
WRENLINK_API int32_t AdbSendBroadcast(void);
WRENLINK_API int32_t AdbCaptureScreen(void);

/* ------------------------------------------------------------------------------------------ */
/* Storage                                                                                      */
/* ------------------------------------------------------------------------------------------ */

/* Writes the first of /sdcard, /sdcard0 ... /sdcard4 that exists into `path` (at least 9 bytes),
 * or the empty text. Always 0. */
WRENLINK_API int32_t AdbGetFirstSDCardPath(const char *serial, char *path);
/* Free bytes at `path`, from the fourth word of `df`. 0; -2 when df printed fewer than four words. */
WRENLINK_API int32_t AdbGetStorageFreespace(const char *serial, const char *path, uint64_t *freeBytes);

/* ------------------------------------------------------------------------------------------ */
/* Memory                                                                                       */
/* ------------------------------------------------------------------------------------------ */

WRENLINK_API void *WrenlinkMalloc(uint32_t size);
/* Frees any block the library handed over; NULL is fine. */
WRENLINK_API void WrenlinkFree(void *block);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* WRENLINK_WRENLINK_H */
