/*
 * Wrenlink: reach Android phones from a desktop application.
 *
 * The flat C interface of libWrenlink, and the one reference for what a caller sees: every
 * function's arguments, results, errors and memory, and the rules that hold in the caller's
 * process. It has two halves that never call each other:
 *
 *   - the adb half (Adb*, AndGetAdbFullpath, KillInstallDriver) runs the `adb` tool found at
 *     <folder of the executable>/../Resources/adb and reads what it prints;
 *   - the agent half (NetConnection*, TestPing, NDD*, NMC*, NFC*) speaks a little-endian
 *     request/reply protocol over TCP to an agent on the phone, through ports that adb forwards
 *     (AdbForward is where the two meet, in the application).
 *
 * Names. The exported names keep their historical spelling, for compatibility with existing
 * applications: AdbRereshDevInfo, AdbListPackege3, AdbListPackegeSys, AdbGetPhoneManufacture,
 * NMCAddIVideo, NMCDelIVideo and ComLog::GetCuurrentFoler (ComLog.h); likewise the record
 * __MediaBean keeps its reserved-looking name. They are not typos to correct.
 *
 * Conventions of every function
 *   - Nothing is thrown across this interface and nothing is configured (no file, no environment
 *     variable). A failure is a result value, an empty text or, in a scan, an onCode call.
 *   - Every call runs on its caller's thread and blocks until it is done, with no time limit of
 *     its own; the library starts no thread. The family blocks below say how long each waits.
 *   - Texts are NUL-terminated. Output buffers of the adb half carry no size argument: their size
 *     is part of each function's contract. Zero them before the call: some results write no
 *     terminator, or nothing at all.
 *   - Yes/no answers are single bytes that a function only ever sets to 1 (AdbIsAdbRoot excepted):
 *     clear them first.
 *   - Blocks handed to the caller (the PhoneInfo array, package lists, __MediaBean records and
 *     their texts) come from malloc and are the caller's: give each back with WrenlinkFree (or
 *     free). A block is handed over whole or not at all. NFCFileRef handles are released by
 *     NFCFileRefClose alone; NetConnection records are never freed.
 *   - Out of memory, every function gives its family's error value: ENOMEM in the agent half
 *     (onCode(22) for a scan's loop, -2 from TestPing, NULL from NetConnectionOpen); in the adb
 *     half -1 where the function has that result, otherwise 0 (AndGetAdbFullpath: the empty
 *     text).
 *
 * In the caller's process
 *   - Threads. Tool runs are one at a time in the whole process: a call waits for another
 *     thread's run to end, so a long transfer holds up every other Adb* call. Root shells
 *     (AdbRootShell, and the root-shell lines of the file functions) are one at a time among
 *     themselves and run beside tool runs; AdbKillOtherADB waits for neither. On one connection
 *     the remote file functions (NFC*) lock each exchange, so threads may share it; TestPing,
 *     NMC* and NDD* lock nothing: never overlap them with another exchange on the same
 *     connection (the scan's control calls while NDDStartScan runs are meant for that).
 *   - Time limits. None. To give up on an agent call, call NetConnectionClose from another thread
 *     (a watchdog): the waiting call returns an error at once, and the handle is dead from then on.
 *     A tool run lasts as long as the tool does.
 *   - Cancellation. A thread cancelled (deferred) inside any call unwinds out of it: locks are
 *     released, descriptors closed, a tool child is killed and reaped. This needs a C library that
 *     unwinds cancelled threads (glibc). A connection whose exchange was cut is out of step: close
 *     it. Asynchronous cancellation is not supported.
 *   - Signals. Install handlers with SA_RESTART. Without it, a signal that interrupts an agent
 *     receive fails it with EINTR (sends are retried): the file functions (an open excepted) store
 *     EINTR and refuse every later call on that connection, as do the scan functions (a running
 *     scan's loop ends with onCode(22)); the media functions keep no error but are then out of step
 *     with their replies (the next list may return the previous request's). Either way, open a new
 *     connection. Tool runs and root shells are not disturbed: their waits keep their whole length.
 *     The library never raises SIGPIPE and signals its tool children through a pidfd where Linux
 *     has one, so a host that reaps every child (SIGCHLD) or ignores SIGCHLD is fine.
 *   - Descriptors and children. Every descriptor the library makes is close-on-exec. A tool child
 *     gets the host's environment and working directory and, of its descriptors, only the three
 *     pipes of its standard streams; it is never run through a shell. Every child is reaped. The
 *     tool may start its server, which outlives the call (AdbRestartAdb or AdbCommand with
 *     " kill-server" ends it).
 *   - Memory. What the library holds follows what the caller asked for: a read reply longer than
 *     asked is dropped as it comes (EMSGSIZE), and of a tool's output only what fits the caller's
 *     buffer is kept, however much the tool prints.
 *   - Output. The library keeps no log (ComLog::Log discards every log line), but it prints these
 *     lines to whatever holds fds 1 and 2, and nothing else. On stdout:
 *       "NetConnectionSend:<sent>/<length>(<reason>)"  when a send fails;
 *       "缓冲区放不下啦"   ("the buffer can't hold it")  when the first send of NFCFileRefWrite
 *                                                     comes back short;
 *       "AdbPushFile:<command line>"                  on every AdbPushFile that runs;
 *       "检测授权成功"     ("authorisation checked")   when AdbRereshDevInfo finds its phone
 *                                                     authorised;
 *       "pipe faile:<errno> " (no line end)           when AdbRootShell gets no pipe;
 *       "_NSGetExecutablePath fail....." (no line end) when the executable's path can't be read.
 *     On stderr: perror's "inet_pton: ..." and "connect: ..." from NetConnectionOpen, "fcntl: ..."
 *     from AdbRootShell, and the runner's complaints "File <path> was not found!", "File <path> is
 *     not excutable!", "create pipe failed!", "end------create pipe failed!" and "launch of <path>
 *     failed: <reason>". The tool of a root shell, and the shell pipeline of AdbKillOtherADB,
 *     write their own stderr there too.
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
/* Records that cross the boundary. Both are byte-packed: declare them the same way.          */
/* ------------------------------------------------------------------------------------------ */

#pragma pack(push, 1)

/* One phone, as AdbGetPhoneList and AdbRereshDevInfo fill it. A text field shorter than 32 bytes
 * is zero-filled; a property of 32 bytes or more fills its field with no terminator. */
typedef struct PhoneInfo {
    char reserved[32];     /* zero in records the library makes; never written */
    char softVersion[32];  /* ro.build.version.release */
    char manufacturer[32]; /* ro.product.manufacturer */
    char productModel[32]; /* ro.product.model */
    char serial[32];       /* as adb prints it, the key by which a phone is found. AdbGetPhoneList
                              stores at most 31 bytes and a NUL; AdbRereshDevInfo reads up to 32,
                              terminated or not */
    uint8_t authorized;    /* 1: state "device", 0: "unauthorized" */
    uint8_t present;       /* 1: the phone stands in adb's list */
} PhoneInfo;

/* One media item of the phone's catalogue, a node of a singly linked list (see NMCListImages).
 * The library gives the values and texts no meaning: it copies them from the agent's reply. The
 * reference agent (tools/wrenlink-agent) fills them alike in all three lists:
 *   value1  the item's id: from 1, in the order paths are first seen, kept by the path
 *   text1   the phone path, e.g. "/DCIM/Camera/IMG_0001.jpg"
 *   value2  the size in bytes
 *   text2   the display name: the file name
 *   value3  the modification time, seconds since 1970
 *   text3   the MIME type, from the extension, e.g. "image/jpeg"
 * Texts are never NULL (an empty text is ""). */
typedef struct __MediaBean {
    uint32_t value1;
    char *text1;
    uint64_t value2;
    char *text2;
    uint64_t value3;
    char *text3;
    struct __MediaBean *next; /* NULL in the last record */
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

/* ========================================================================================== */
/* The agent half                                                                             */
/* ========================================================================================== */

/* The result of the scan, media and file functions: 0, one of the three library codes below, an
 * errno value (a failed transfer: ECONNRESET when the peer closed, EBADF after a close; EINVAL
 * for a NULL argument; ENOMEM), or the agent's own status, passed on unchanged (the reference
 * agent answers with errno values as on Linux: ENOENT 2, EACCES 13, EEXIST 17 ...). */
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
/* Net connection and ping                                                                    */
/* ------------------------------------------------------------------------------------------ */

/* A connection keeps two stored ("sticky") errors, apart from each other: sendError, set by a
 * failed NetConnectionSend and by the scan functions, and returned at once by every later send,
 * scan and media call; fileError, set by the file functions, returned by every later file call.
 * Neither is ever cleared while the connection is open: open a new one. */

/* One TCP connection to the agent; opaque. Made by NetConnectionOpen, ended by NetConnectionClose.
 * The record itself is never freed, so a handle used after its close fails (EBADF) instead of
 * touching freed memory. */
typedef struct NetConnection NetConnection;

/* Connects to a dotted IPv4 `address` and `port` (low 16 bits used). Blocks in connect for as
 * long as the system lets it. Returns a new connection, or NULL when the socket, the address text
 * (NULL too: perror "inet_pton") or the connect (perror "connect") fails. A receive on it waits
 * until data, the peer's close or an error comes; TCP keepalive is all that ends a wait on a peer
 * that vanished. */
WRENLINK_API NetConnection *NetConnectionOpen(const char *address, uint32_t port);

/* Sends all `length` bytes of `data` (`flags` go to send). Returns:
 *   -1       at once when the connection holds a stored sendError (errno = that error; also for
 *            length <= 0), or conn is NULL (EINVAL);
 *   0        for length <= 0;
 *   length   when all was sent;
 *   the count so far (0 or more) when the transfer broke off: errno is stored as the connection's
 *            sendError (22 if errno was 0) and a line goes to stdout.
 * A signal during the send is retried. Never raises SIGPIPE. Takes no lock. */
WRENLINK_API int32_t NetConnectionSend(NetConnection *conn, const void *data, int32_t length, int32_t flags);

/* Receives exactly `length` bytes into `buffer` (`flags` go to recv). Returns `length`; 0 for
 * length <= 0 (nothing read), or when the peer closed first (errno = ECONNRESET; the bytes that
 * came are in `buffer`, uncounted); -1 on an error (errno; EINTR is not retried; EINVAL for a NULL
 * conn). A partial count is never returned, and nothing is stored. Takes no lock. */
WRENLINK_API int32_t NetConnectionRecv(NetConnection *conn, void *buffer, int32_t length, int32_t flags);

/* Has no effect; always 0. Connections have no time limit. */
WRENLINK_API int32_t NetConnectionSetTimeout(NetConnection *conn, int32_t milliseconds);

/* Closes the socket and clears both stored errors; NULL does nothing, a second close closes
 * nothing. Safe from any thread, also while an exchange waits on the connection: that exchange
 * fails at once, and the descriptor is closed when the last call is out of it. */
WRENLINK_API void NetConnectionClose(NetConnection *conn);

/* The connection's lock, which the file functions take around each exchange; not recursive.
 * Hold it around a TestPing, NMC* or NDD* exchange to keep other threads' file exchanges off the
 * connection, but never around a file call of your own thread. NULL does nothing. */
WRENLINK_API void NetConnectionLock(NetConnection *conn);
WRENLINK_API void NetConnectionUnlock(NetConnection *conn);

/* Pings the agent; no lock. 0: it answered 00 00 00 01; -2: nothing was sent, since an earlier
 * send failed on this connection (or conn is NULL); -3: the receive failed with an error; -4: a
 * wrong answer, or the peer closed first. */
WRENLINK_API int32_t TestPing(NetConnection *conn);

/* ------------------------------------------------------------------------------------------ */
/* Disk discovery scan                                                                        */
/* ------------------------------------------------------------------------------------------ */

/* The callbacks run on the thread inside NDDStartScan, one at a time, and must not throw; each
 * gets the caller's `userValue`. They may call the control functions below on the control
 * connection.
 *
 * A found file. `item` is a NUL-terminated text in the loop's buffer, valid only during the call.
 * The reference agent sends "<size>\t<mtime>\t<MIME type>\t<phone path>". */
typedef void (*NDDFoundItemCallback)(const char *item, uint64_t userValue);
/* The scan's result: the agent's code (the reference agent: 0 complete, ECANCELED 125 after a
 * stop), or 22 when the event stream broke before the scan finished. */
typedef void (*NDDCodeCallback)(uint32_t code, uint64_t userValue);
/* Files done of the total (the reference agent: after every hundredth of the files and after the
 * last one; an empty tree gives 0 of 0). */
typedef void (*NDDProgressCallback)(int64_t done, int64_t total, uint64_t userValue);

/* Starts a scan on the control connection `conn` and runs its event loop on the calling thread
 * until the agent closes the event connection, which the loop opens to 127.0.0.1:10244 (the
 * agent's own port, whatever address `conn` has). `unused` is not read and may be NULL.
 * Returns, before any callback: the stored sendError; a transfer error (then stored); EINVAL for
 * a NULL conn; AgentBadMagic; or the agent's refusal (the reference agent: EBUSY while another
 * scan runs). Returns 0 once the loop has run: the outcome reaches the callbacks only. A stream
 * that ends before the scan finished (no code event, and no progress with done >= total), an
 * event connection that cannot be opened, or no memory for the loop gives onCode(22). A found
 * item longer than 2048 bytes arrives as its first 2048, a code payload longer than 4 bytes as its
 * first 4. NULL callbacks are skipped. The event connection is closed when the loop ends. */
WRENLINK_API AgentStatus NDDStartScan(NetConnection *conn, const char *unused, NDDFoundItemCallback onFoundItem,
                                      NDDCodeCallback onCode, NDDProgressCallback onProgress, uint64_t userValue);

/* Control requests on the control connection; callable from another thread or from a callback
 * while NDDStartScan runs (the loop never touches that connection), but never two at once on one
 * connection: nothing here locks. Each blocks until the agent's reply and returns its status (the
 * reference agent: ESRCH when no scan runs; a pause is answered once the scan has parked), the
 * stored sendError, a transfer error (then stored), AgentBadMagic, or EINVAL for a NULL
 * connection or path. */
WRENLINK_API AgentStatus NDDStopScan(NetConnection *conn);
WRENLINK_API AgentStatus NDDPauseScan(NetConnection *conn);
WRENLINK_API AgentStatus NDDResumeScan(NetConnection *conn);
/* Asks the agent to delete the file at `path` (the reference agent: one file, not a directory;
 * with or without a scan running). */
WRENLINK_API AgentStatus NDDEraseFile(NetConnection *conn, const char *path);

/* ------------------------------------------------------------------------------------------ */
/* Media catalogue                                                                            */
/* ------------------------------------------------------------------------------------------ */

/* Each function is one exchange that blocks until the agent's reply; none locks (don't overlap
 * them with another exchange on the connection) or stores an error of its own, but each returns
 * the stored sendError at once, and a send that fails stores its error as NetConnectionSend does.
 * Results: 0, the agent's status, a transfer error, AgentBadMagic, or EINVAL for a NULL argument.
 * After a refusal or a failed receive the connection may be out of step. */

/* List the images, music or videos. On success the items hang on head->next in the agent's order
 * (the reference agent: sorted by phone path), replacing what was there, and *count holds their
 * number; an empty list writes 0 to *count and leaves head->next alone, so clear it first. The
 * head's other fields are never written. On any failure neither is touched: a payload that does
 * not end exactly on an item gives AgentShortPayload, a failed allocation ENOMEM, and what was
 * parsed is freed. The caller owns every record after the head and each of its three texts: free
 * each with WrenlinkFree. See __MediaBean for what the fields hold. */
WRENLINK_API AgentStatus NMCListImages(NetConnection *conn, __MediaBean *head, uint32_t *count);
WRENLINK_API AgentStatus NMCListMusics(NetConnection *conn, __MediaBean *head, uint32_t *count);
WRENLINK_API AgentStatus NMCListVideo(NetConnection *conn, __MediaBean *head, uint32_t *count);
/* Add `text` to a catalogue, or delete it; the text goes without its NUL, and the agent decides
 * what it names. The reference agent takes a phone path: add wants a regular file (ENOENT when
 * there is none, EINVAL for another kind, EEXIST when already listed), delete a listed path
 * (ENOENT otherwise); both change the catalogue only, never the files. */
WRENLINK_API AgentStatus NMCAddImage(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCDelImage(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCAddMusic(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCDelMusic(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCAddIVideo(NetConnection *conn, const char *text);
WRENLINK_API AgentStatus NMCDelIVideo(NetConnection *conn, const char *text);

/* ------------------------------------------------------------------------------------------ */
/* Remote files and paths                                                                     */
/* ------------------------------------------------------------------------------------------ */

/* Each function is one exchange under the connection's lock (the seek two), blocking until the
 * agent's reply, so threads may share a connection; a handle belongs to one thread at a time. A
 * failed transfer, a bad magic, a short payload or a bad CRC is stored in fileError (the stream is
 * out of step) and returned at once by every later file call on the connection; NFCFileRefOpen
 * never stores, but it too returns a stored error. A refusal by the agent, and EMSGSIZE and ENOMEM
 * below, leave the connection usable. A failed exchange never returns 0 (a closed stream gives
 * ECONNRESET). A NULL handle, text or out-parameter gives EINVAL with nothing sent. */

/* One open file on the phone, with the position the next read or write goes to; opaque. Made by
 * NFCFileRefOpen, released by NFCFileRefClose (never by WrenlinkFree). */
typedef struct NFCFileRef NFCFileRef;

/* Opens `path` with an fopen-style `mode` (the reference agent: "r", "w" or "a", then any of
 * "+", "b", "t", "e", "x"; a directory gives EISDIR). Stores NULL in *ref first, then a new handle
 * at position 0. An open reply under 4 payload bytes gives AgentShortPayload, a bad CRC
 * AgentBadCrc, no memory for the handle ENOMEM; none of them is stored, though the stream may be
 * out of step after the first two. */
WRENLINK_API AgentStatus NFCFileRefOpen(NetConnection *conn, const char *path, const char *mode, NFCFileRef **ref);
/* Reads at the handle's position. *length in: the count asked for and the capacity of `buffer`
 * (buffer may be NULL for 0); out: the count received, 0 at the end of the file. The position
 * moves by that count. On failure `buffer`, *length and the position are untouched. A reply
 * larger than the count asked for gives EMSGSIZE, and one whose payload cannot be allocated
 * ENOMEM: its bytes are read and dropped as they come. */
WRENLINK_API AgentStatus NFCFileRefRead(NetConnection *conn, NFCFileRef *ref, void *buffer, int32_t *length);
/* Writes `length` bytes of `data` (NULL for 0) at the handle's position; on success the position
 * moves by `length`. A short reply header gives AgentShortPayload. */
WRENLINK_API AgentStatus NFCFileRefWrite(NetConnection *conn, NFCFileRef *ref, const void *data, int32_t length);
/* Stores the agent's position of the file in *agentPosition (the reference agent: after the last
 * byte read or written); the handle's position is untouched. A reply under 8 payload bytes gives
 * AgentShortPayload. */
WRENLINK_API AgentStatus NFCFileRefTell(NetConnection *conn, NFCFileRef *ref, int64_t *agentPosition);
/* Moves the agent's position by `offset` from the place `whence` names, then sets the handle's
 * position to the agent's by a tell (to `offset` when the tell fails: that failure is not
 * returned, though an error it stores shows at the next call). The library passes `whence` on
 * unchanged; the reference agent takes lseek's values, 0 the start (SEEK_SET), 1 the current
 * position (SEEK_CUR), 2 the end (SEEK_END), and refuses any other with EINVAL. */
WRENLINK_API AgentStatus NFCFileRefSeek(NetConnection *conn, NFCFileRef *ref, int64_t offset, int32_t whence);
/* Closes the remote file and releases the handle, whatever the agent answers. On a connection
 * with a stored error it returns that error and releases nothing. */
WRENLINK_API AgentStatus NFCFileRefClose(NetConnection *conn, NFCFileRef *ref);
/* Deletes `path` (the reference agent: a file, a link or an empty directory). */
WRENLINK_API AgentStatus NFCFileRefDelete(NetConnection *conn, const char *path);
/* Makes the directory `path` (the reference agent: one level, EEXIST when it is there). */
WRENLINK_API AgentStatus NFCFileRefMkDir(NetConnection *conn, const char *path);
/* Asks whether `path` is accessible; the agent decides what 0 means (the reference agent: the
 * path exists; ENOENT otherwise). */
WRENLINK_API AgentStatus NFCFileRefAccess(NetConnection *conn, const char *path);

/* ========================================================================================== */
/* The adb half                                                                               */
/* ========================================================================================== */

/* Every function here that reaches a phone or the tool's server runs the tool as a child
 * process, once or more, and blocks until each run has ended, with no time limit: a tool that
 * never ends holds the caller. Tool runs are one at a time in the whole process (see "Threads"
 * above).
 *
 * A function forms its command line within 512 bytes: a line that would take more than 511
 * characters (a long serial or path) runs nothing, and the function gives the result stated for
 * that, or else what an empty output gives. Only AdbCommand takes a line of any length.
 * Arguments are separated by blanks; "..." groups blanks into one argument. Nothing in a path is
 * escaped.
 *
 * A failed run is not a failed call: a tool that is missing (a line on stderr), cannot start, or
 * finds no phone shows only as an empty text or as the tool's own words (a tool found without
 * the execute permission is given it). Each function reads its
 * result from that text, which holds the tool's stdout then its stderr, at most 2047 bytes. "Not
 * found" below means that the text begins with "error: device not found"; newer tools word a
 * missing phone otherwise, and then it is not told apart. */

/* ------------------------------------------------------------------------------------------ */
/* The tool                                                                                   */
/* ------------------------------------------------------------------------------------------ */

/* Runs the tool with the arguments of `commandLine` (a line of blanks only gives the tool its own
 * path as the one argument) and copies the tool's stdout then stderr, each up to its first NUL,
 * into `output`: a shorter text with its terminator, otherwise exactly outputSize - 1 bytes and
 * no terminator. The rest of what the tool prints is read and dropped. A NULL output or an
 * outputSize < 1 keeps no text; a NULL commandLine runs nothing and gives the empty text.
 * With isWaitExit true it returns when the tool exits (a server the tool started may live on);
 * with false the tool gets one second, is then terminated (and killed half a second later if
 * still there), and the text is empty. Always 0. */
WRENLINK_API int32_t AdbCommand(const char *commandLine, char *output, int32_t outputSize, bool isWaitExit);
/* Runs `adb -s <serial> shell <shellCommand>`; shellCommand is split as AdbCommand's line is
 * (quote a pipeline to keep it one argument for the phone's shell). `output` (2048 bytes) gets
 * the text, at most 2047 bytes and a NUL, and is written only when the text is not empty. 1 after
 * a run, whatever the phone said; -1 when a pointer is NULL or the line is too long (nothing run). */
WRENLINK_API int32_t AdbShellCommand(const char *serial, const char *shellCommand, char *output, bool isWaitExit);

/* Kills (signal 9) every process whose line in `ps -ax` holds the letters "adb" (the tool's
 * server, other threads' tool runs, anything else with those letters that the caller may
 * signal), except the caller's own process; a number cut off at the end of a 511-byte list is
 * dropped. Runs `ps`, `grep` and `awk` through /bin/sh and takes no lock. 0, or 1 when the
 * process list cannot be had. */
WRENLINK_API int32_t AdbKillOtherADB(void);
/* Runs `adb kill-server`, then `adb start-server`. Always 0. */
WRENLINK_API int32_t AdbRestartAdb(void);
/* Runs `adb -s <serial> forward tcp:<localPort> tcp:<phonePort>`; the forward lives on in the
 * tool's server. Always 0 (also for a NULL serial, with nothing run): a refused forward shows only
 * when the connection through it fails. */
WRENLINK_API int32_t AdbForward(const char *serial, uint32_t localPort, uint32_t phonePort);
/* The tool's full path: <folder of the executable>/../Resources/adb, in thread-local storage
 * valid until the same thread's next call. Never NULL. */
WRENLINK_API const char *AndGetAdbFullpath(void);
/* Has no effect. */
WRENLINK_API void KillInstallDriver(void);

/* ------------------------------------------------------------------------------------------ */
/* Root shell                                                                                 */
/* ------------------------------------------------------------------------------------------ */

/* Runs one line in a root shell on the phone that the tool picks by itself (no -s: with several
 * phones attached the tool refuses): `adb shell`, then "su" unless the shell's first text shows
 * '#', then `commandLine` exactly as given (end it with "\r\n": a shell on a terminal runs only
 * whole lines), and kills the shell. Each line gets half a second; each read of the shell's text
 * waits for its first bytes without limit, unless the shell has exited. `output` (2048 bytes)
 * gets the text that came after the line, at most 2047 bytes and a NUL. `unused` is not read.
 * Always 0: a NULL commandLine or output runs nothing, and a shell that cannot be started gives
 * no text. Root shells are one at a time among themselves and don't wait for tool runs. */
WRENLINK_API int32_t AdbRootShell(const char *unused, const char *commandLine, char *output);
/* Runs `adb -s <serial> shell id` and sets *isRoot to 1 when the text holds "uid=0(root)", else
 * to 0. 0: stored; 1: not found (*isRoot untouched); -1: a NULL pointer or a line too long. */
WRENLINK_API int32_t AdbIsAdbRoot(const char *serial, uint8_t *isRoot);

/* ------------------------------------------------------------------------------------------ */
/* Phones                                                                                     */
/* ------------------------------------------------------------------------------------------ */

/* Runs `adb devices` and writes "serial-author;", "serial-offline;" or "serial-unauthor;" per
 * phone into `output` (2048 bytes), terminated; whole records only, at most 2047 bytes. With no
 * phone nothing is written, not even a terminator. 0; -1 when the tool's text holds "error" or
 * "fail" anywhere (output untouched) or output is NULL. */
WRENLINK_API int32_t AdbGetDevicesList(char *output);
/* Lists the phones: one record per phone in state "device" (with its three properties read, one
 * run each) or "unauthorized" (texts empty); offline phones are left out. Stores a malloc'd array
 * of *count records in *phones, also when the count is 0 (free it with WrenlinkFree). Always 0;
 * out of memory it stores NULL and 0, and a NULL argument stores nothing. */
WRENLINK_API int32_t AdbGetPhoneList(PhoneInfo **phones, uint32_t *count);
/* Refreshes the record whose `serial` the caller filled: `present`; for a present phone
 * `authorized`; and for an authorised one the three properties (a failed read leaves its field)
 * and a line on stdout. 1 when the tool's text does not begin with the list's header or is the
 * empty list: `present` is cleared. Otherwise 0. A NULL phone gives 0. */
WRENLINK_API int32_t AdbRereshDevInfo(PhoneInfo *phone);
/* Property reads into a 32-byte field, with the whole serial: the field gets the text's first 32
 * bytes cut at its first line end (so an empty text gives a zeroed field, and a value of 32
 * bytes or more no terminator). 0 done; 1 not found, or for the soft version also "error: device
 * not found" or "daemon not running" anywhere in the text (the field is untouched); -1 when either
 * pointer is NULL (nothing run). */
WRENLINK_API int32_t AdbGetPhoneSoftVersion(const char *serial, char *version);
WRENLINK_API int32_t AdbGetPhoneProductModel(const char *serial, char *model);
WRENLINK_API int32_t AdbGetPhoneManufacture(const char *serial, char *manufacturer);
/* Has no effect; always 0. */
WRENLINK_API int32_t AdbGetPhoneName(void);

/* ------------------------------------------------------------------------------------------ */
/* Files on the phone                                                                         */
/* ------------------------------------------------------------------------------------------ */

/* Results: -1 a NULL argument or a line too long (nothing run); 0 clean (or not found); 1 a
 * failure text in the text judged; 2 a failure text with "Permission denied" (AdbMakeDirectory,
 * AdbPushFile, AdbPullFile only). The failure texts: "No such file or directory", "Not a
 * directory", "Permission denied", "does not exist", and "not found" (except for AdbPushFile).
 * No exit status is looked at. */

/* Root-shell lines (see AdbRootShell): they go to the phone that the tool picks by itself, and
 * `serial` is only checked for NULL. Rename, remove and remove directory send `mv "old" "new"`,
 * `rm "path"` and `rmdir -r "path"` without a line end: a shell on a terminal, as phones have,
 * never runs them, and the result is then normally 0. */
WRENLINK_API int32_t AdbRenameFile(const char *serial, const char *oldPath, const char *newPath);
WRENLINK_API int32_t AdbRemoveFile(const char *serial, const char *path);
WRENLINK_API int32_t AdbRemoveDirectory(const char *serial, const char *path);
/* Sends `mkdir <path>` and `chmod 777 <path>`; only the chmod's text is judged. */
WRENLINK_API int32_t AdbMakeDirectory(const char *serial, const char *path);
/* Runs `adb -s <serial> push "<local>" "<phone>"` and prints its line on stdout. */
WRENLINK_API int32_t AdbPushFile(const char *serial, const char *localPath, const char *phonePath);
/* Copies through a temporary file /data/local/tmp/<n> (n: the microseconds of the current second)
 * that the root shell makes with dd and opens to all; pulls it to `localPath` and removes it. The
 * removal's text is what is judged: a phone path that is not there gives 1, a failed pull of a
 * good copy 0. */
WRENLINK_API int32_t AdbPullFile(const char *serial, const char *phonePath, const char *localPath);
/* Direct transfers that judge nothing: -1 a NULL argument or a line too long, else 0. The pull
 * leaves the local path unquoted, so a blank in it splits it into two arguments. */
WRENLINK_API int32_t AdbPushFileEx(const char *serial, const char *localPath, const char *phonePath);
WRENLINK_API int32_t AdbPullFileEx(const char *serial, const char *phonePath, const char *localPath);
/* Has no effect; always 0. */
WRENLINK_API int32_t AdbGetFileInfo(void);

/* ------------------------------------------------------------------------------------------ */
/* Packages                                                                                   */
/* ------------------------------------------------------------------------------------------ */

/* `adb -s <serial> install -r "<path>"` and `adb -s <serial> uninstall "<name>"`, judged by the
 * failure texts above: 0 not found; 1 done, or a failure text without "Permission denied"; 2 a
 * failure text with it; -1 a NULL argument or a line too long. A phone's own "Failure [...]"
 * words hold no failure text, so they give 1 as well. */
WRENLINK_API int32_t AdbInstallPackage(const char *serial, const char *packagePath);
WRENLINK_API int32_t AdbUninstallPackage(const char *serial, const char *packageName);
/* The phone's third-party / system packages as raw text ("package:<name>" lines, at most 2047
 * bytes) in a malloc block of 16 MiB that the caller frees with WrenlinkFree; *length excludes
 * the terminator. Always 0. A NULL argument stores nothing; out of memory it stores NULL and 0. */
WRENLINK_API int32_t AdbListPackege3(const char *serial, char **text, uint32_t *length);
WRENLINK_API int32_t AdbListPackegeSys(const char *serial, char **text, uint32_t *length);
/* Sets *exists to 1 when `pm path <name>` on the phone names an .apk; otherwise leaves it alone.
 * Always 0. */
WRENLINK_API int32_t AdbCheckPackageApkExist(const char *serial, const char *packageName, uint8_t *exists);
/* Sets *installed to 1 when `pm list packages | grep <name>` on the phone gives exactly one line:
 * a name that is part of two installed names does not count. Always 0. */
WRENLINK_API int32_t AdbCheckAppInstalled(const char *serial, const char *packageName, uint8_t *installed);
/* Copies the text right behind the first `key` in `dumpsys package <name>` up to the line end
 * into `value` (2048 bytes), at most 2047 bytes and a NUL. 0; -2 when the key is not there (value
 * untouched); 0 with nothing written for a NULL argument. */
WRENLINK_API int32_t AdbGetPackageProp(const char *serial, const char *packageName, const char *key, char *value);

/* ------------------------------------------------------------------------------------------ */
/* Activities                                                                                 */
/* ------------------------------------------------------------------------------------------ */

/* Writes the focused activity's component ("pkg/.Name", from `dumpsys activity activities`) into
 * `name` (2048 bytes), at most 2047 bytes and a NUL. 0; -1 when none is found or a pointer is
 * NULL. */
WRENLINK_API int32_t AdbGetTopActivity(const char *serial, char *name);
/* `am start -n <component>`. 0; -1 when the phone did not say "Starting: Intent", a pointer is
 * NULL or the line is too long. */
WRENLINK_API int32_t AdbStartActivity(const char *serial, const char *component);
/* `am force-stop <package>`. Always 0. */
WRENLINK_API int32_t AdbForceStopApp(const char *serial, const char *packageName);
/* Have no effect; always 0. */
WRENLINK_API int32_t AdbStartService(void);
WRENLINK_API int32_t AdbStopService(void);
WRENLINK_API int32_t AdbSendBroadcast(void);
WRENLINK_API int32_t AdbCaptureScreen(void);

/* ------------------------------------------------------------------------------------------ */
/* Storage                                                                                    */
/* ------------------------------------------------------------------------------------------ */

/* Writes the first of /sdcard, /sdcard0 ... /sdcard4 whose `ls -l` does not say "No such file or
 * directory" into `path` (at least 9 bytes), or the empty text; one run per candidate, each
 * candidate in `path` while it is tried. Always 0. */
WRENLINK_API int32_t AdbGetFirstSDCardPath(const char *serial, char *path);
/* Free bytes at `path`, from the fourth word of `df <path>`: a number in KiB, or in MiB or GiB
 * when the word holds an M or a G, with "." as the decimal point whatever the locale (a fraction
 * whose product no 64-bit count holds gives 0). 0; -2 when df printed fewer than four words; 0
 * with nothing written for a NULL argument. */
WRENLINK_API int32_t AdbGetStorageFreespace(const char *serial, const char *path, uint64_t *freeBytes);

/* ========================================================================================== */
/* Memory                                                                                     */
/* ========================================================================================== */

/* A block of `size` bytes from malloc, or NULL when there is none; the library never calls it.
 * For an application that hands blocks to code which gives them back with WrenlinkFree. */
WRENLINK_API void *WrenlinkMalloc(uint32_t size);
/* Gives a block back to free: any block the library handed over, or one from WrenlinkMalloc.
 * NULL is fine. */
WRENLINK_API void WrenlinkFree(void *block);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* WRENLINK_WRENLINK_H */
