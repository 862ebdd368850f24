/* A client of the ZPD device, in plain C:
 *
 *   client activate APPLICATION   has received cards stored, as long as APPLICATION is installed
 *   client send CARD.vcf NUMBER   sends a card, follows it until it is sent or refused, and closes the message
 *   client inbox                  lists the stored cards
 *   client read NAME CARD.vcf     writes a stored card to a file
 *
 * Buffers are what com/zpd/zpd_ioctl.h says: values one after another, little-endian.
 * Exit status: 0 done, 1 failed, 2 wrong usage. A call that fails is told with the last error. */
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "com/zpd/zpd_ioctl.h"

#define NUMBER_MAX 255 /* UTF-16 units, as many as the radio takes */
#define DATAGRAMS_MAX 255
#define PATH_UNITS 260
#define POLL_TIME 500    /* milliseconds */
#define POLLS_MAX 1200   /* without a change: ten minutes */
#define STORED_MAX 65536 /* octets; no card that was received takes as many */

static int failed(const char* what) {
    fprintf(stderr, "%s: error %lu\n", what, GetLastError());
    return 1;
}

typedef struct {
    BYTE octets[4 + ZPD_CARD_MAX_SHORT_REFERENCE + 2 + 4 + 2 * NUMBER_MAX];
    DWORD length;
} request_t;

typedef struct {
    BYTE octets[4 + 8 * DATAGRAMS_MAX];
    DWORD length;
} reply_t;

static request_t request;
static reply_t reply;

static void put_octet(unsigned value) {
    request.octets[request.length++] = (BYTE)value;
}

static void put_u32(DWORD value) {
    int shift;
    for (shift = 0; shift < 32; shift += 8) {
        put_octet(value >> shift & 0xFF);
    }
}

/* The caller has seen to it that they fit. */
static void put_string(const void* octets, DWORD count) {
    put_u32(count);
    memcpy(request.octets + request.length, octets, count);
    request.length += count;
}

static DWORD u32_at(DWORD offset) {
    const BYTE* at = reply.octets + offset;
    return at[0] | (DWORD)at[1] << 8 | (DWORD)at[2] << 16 | (DWORD)at[3] << 24;
}

/* Whether the request was served, and answered with at least so many octets. It is empty again afterwards. */
static BOOL call(HANDLE device, DWORD code, DWORD expected) {
    BOOL done;
    reply.length = 0;
    done = DeviceIoControl(device, code, request.octets, request.length, reply.octets, sizeof reply.octets,
                           &reply.length, NULL);
    request.length = 0;
    if (done && reply.length < expected) {
        SetLastError(ERROR_INVALID_DATA);
        done = FALSE;
    }
    return done;
}

/* The whole file, if it has no more octets than there is room for. */
static BOOL read_file(const wchar_t* path, BYTE* octets, DWORD room, DWORD* length) {
    BYTE surplus;
    DWORD more = 0;
    BOOL done;
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
    if (file == INVALID_HANDLE_VALUE) {
        return FALSE;
    }
    done = ReadFile(file, octets, room, length, NULL) && ReadFile(file, &surplus, 1, &more, NULL);
    CloseHandle(file);
    if (done && more != 0) {
        SetLastError(ERROR_FILE_TOO_LARGE);
        done = FALSE;
    }
    return done;
}

static BOOL write_file(const wchar_t* path, const BYTE* octets, DWORD length) {
    DWORD written = 0;
    BOOL done;
    HANDLE file = CreateFileW(path, GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    if (file == INVALID_HANDLE_VALUE) {
        return FALSE;
    }
    done = WriteFile(file, octets, length, &written, NULL) && written == length;
    CloseHandle(file);
    return done;
}

/* The driver looks for \Applications\Install\NAME when a card comes: without it, it forgets the application, and with
 * the last one it stops storing cards. */
static BOOL is_installed(const wchar_t* application) {
    wchar_t path[PATH_UNITS] = L"\\Applications\\Install\\";
    if (wcslen(path) + wcslen(application) >= PATH_UNITS) {
        SetLastError(ERROR_INVALID_NAME);
        return FALSE;
    }
    wcscat(path, application);
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

static int activate(HANDLE device, const wchar_t* application) {
    char name[3 * PATH_UNITS];
    int length;
    if (!is_installed(application)) {
        return failed("the application is not installed");
    }
    length = WideCharToMultiByte(CP_UTF8, 0, application, (int)wcslen(application), name, sizeof name, NULL, NULL);
    put_octet(ZPD_APPLICATION_REGISTER);
    put_string(name, (DWORD)length);
    if (length == 0 || !call(device, ZPD_IOCTL_APPLICATION, 0)) {
        return failed("the application is not registered");
    }
    put_octet(1);
    put_octet(1);
    if (!call(device, ZPD_IOCTL_ACTIVATION, 1)) {
        return failed("the service is not activated");
    }
    printf("received cards are stored\n");
    return 0;
}

/* The card as UTF-8, cut between characters, with short references. */
static BOOL put_card(const wchar_t* path, const wchar_t* number) {
    static BYTE card[ZPD_CARD_MAX_SHORT_REFERENCE];
    DWORD length = 0;
    if (!read_file(path, card, sizeof card, &length)) {
        return FALSE;
    }
    if (wcslen(number) > NUMBER_MAX) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    put_string(card, length);
    put_octet(1);
    put_octet(0);
    put_string(number, (DWORD)(wcslen(number) * sizeof *number));
    return TRUE;
}

/* A message that got the id 0 is sent like any other, and told as a failure of its own. */
static BOOL submit(HANDLE device, DWORD* id) {
    if (call(device, ZPD_IOCTL_SEND_MESSAGE, 4)) {
        *id = u32_at(0);
        return TRUE;
    }
    *id = 0;
    return GetLastError() == ZPD_ERROR_DEVICE_NOT_AVAILABLE && reply.length == 4 && u32_at(0) == ZPD_MESSAGE_ID_ZERO;
}

static const char* status_name(DWORD status) {
    switch (status) {
        case ZPD_STATUS_QUEUED:
            return "queued";
        case ZPD_STATUS_SUBMITTED:
            return "with the radio";
        case ZPD_STATUS_FAILED:
            return "refused";
        case ZPD_STATUS_DEFERRED:
            return "given up";
        case ZPD_STATUS_SENT:
            return "sent";
        default:
            return "unknown";
    }
}

typedef struct {
    DWORD status[DATAGRAMS_MAX];
    DWORD count, sent, refused, polls; /* polls since the last change */
} progress_t;

/* Tells each datagram whose status has changed since the last call. */
static BOOL look(HANDLE device, DWORD id, progress_t* progress) {
    DWORD i;
    put_u32(id);
    if (!call(device, ZPD_IOCTL_MESSAGE_STATUS, 4) || reply.length != 4 + 8 * u32_at(0)) {
        return FALSE;
    }
    progress->count = u32_at(0);
    progress->sent = progress->refused = 0;
    ++progress->polls;
    for (i = 0; i < progress->count; ++i) {
        const DWORD status = u32_at(4 + 8 * i);
        if (status != progress->status[i]) {
            printf("datagram %lu of %lu: %s\n", i + 1, progress->count, status_name(status));
            progress->status[i] = status;
            progress->polls = 0;
        }
        progress->sent += status == ZPD_STATUS_SENT;
        progress->refused += status == ZPD_STATUS_FAILED;
    }
    return TRUE;
}

/* Until all datagrams are sent, or one is refused: the driver gives up the others then. An error that comes after the
 * radio has taken a datagram ends nothing: the driver tries that one again, without end. */
static int follow(HANDLE device, DWORD id) {
    static progress_t progress;
    memset(&progress, 0, sizeof progress);
    memset(progress.status, 0xFF, sizeof progress.status);
    while (look(device, id, &progress)) {
        if (progress.sent == progress.count) {
            return 0;
        }
        if (progress.refused != 0 || progress.polls == POLLS_MAX) {
            printf("message %lu is not sent, %lu of its %lu datagrams are\n", id, progress.sent, progress.count);
            return 1;
        }
        Sleep(POLL_TIME);
    }
    return failed("the message can't be followed");
}

static int send_card(HANDLE device, const wchar_t* path, const wchar_t* number) {
    DWORD id;
    int result;
    if (!put_card(path, number)) {
        return failed("the card can't be read");
    }
    if (!submit(device, &id)) {
        return failed("the card is not sent");
    }
    printf("message %lu\n", id);
    result = follow(device, id);
    put_u32(id); /* the driver keeps its record until it is closed */
    if (!call(device, ZPD_IOCTL_MESSAGE_CLOSE, 0)) {
        return failed("the message can't be closed");
    }
    return result;
}

typedef struct {
    char name[ZPD_STORED_NAME_LENGTH + 1];
    char time[40];
    const char* sender; /* in `octets`, terminated */
    const BYTE* card;   /* in `octets` */
    DWORD length;
    BYTE octets[STORED_MAX];
} stored_t;

static stored_t stored;

/* A path in the folder of the stored cards. */
static void stored_path(wchar_t* path, const wchar_t* name) {
    static const char* const folders[] = {ZPD_INCOMING_DIRECTORY};
    size_t i;
    const char* at;
    for (i = 0; i < sizeof folders / sizeof *folders; ++i) {
        *path++ = L'\\';
        for (at = folders[i]; *at != 0; ++at) {
            *path++ = (wchar_t)*at;
        }
    }
    *path++ = L'\\';
    wcscpy(path, name);
}

static BOOL is_stored_name(const wchar_t* name) {
    size_t i;
    for (i = 0; name[i] != 0; ++i) {
        if (name[i] > 127 || strchr(ZPD_STORED_NAME_DIGITS, (char)name[i]) == NULL) {
            return FALSE;
        }
    }
    return i == ZPD_STORED_NAME_LENGTH;
}

/* "1700000000" becomes "2023-11-14 22:13:20": seconds since 1970, in units of 100 ns since 1601. */
static BOOL set_time(const BYTE* digits, const BYTE* end) {
    ULONGLONG time = 0;
    FILETIME ticks;
    SYSTEMTIME date;
    for (; digits < end; ++digits) {
        if (*digits < '0' || *digits > '9' || time > 0xFFFFFFFF) {
            return FALSE;
        }
        time = 10 * time + (*digits - '0');
    }
    time = (time + (ULONGLONG)134774 * 86400) * 10000000; /* days between the two, seconds of a day */
    ticks.dwLowDateTime = (DWORD)time;
    ticks.dwHighDateTime = (DWORD)(time >> 32);
    if (!FileTimeToSystemTime(&ticks, &date)) {
        return FALSE;
    }
    sprintf(stored.time, "%04u-%02u-%02u %02u:%02u:%02u", date.wYear, date.wMonth, date.wDay, date.wHour, date.wMinute,
            date.wSecond);
    return TRUE;
}

/* TIME, the first mark, SENDER, the second mark, the card. */
static BOOL parse(DWORD length) {
    BYTE* const after_time = memchr(stored.octets, ZPD_STORED_AFTER_TIME, length);
    BYTE* after_sender = NULL;
    if (after_time != NULL) {
        after_sender = memchr(after_time, ZPD_STORED_AFTER_SENDER, (size_t)(stored.octets + length - after_time));
    }
    if (after_sender == NULL || !set_time(stored.octets, after_time)) {
        SetLastError(ERROR_INVALID_DATA);
        return FALSE;
    }
    *after_sender = 0;
    stored.sender = (const char*)after_time + 1;
    stored.card = after_sender + 1;
    stored.length = (DWORD)(stored.octets + length - stored.card);
    return TRUE;
}

/* The name is one of a stored card. */
static int read_stored(const wchar_t* name) {
    wchar_t path[PATH_UNITS];
    DWORD length = 0;
    size_t i;
    for (i = 0; i <= ZPD_STORED_NAME_LENGTH; ++i) {
        stored.name[i] = (char)name[i];
    }
    stored_path(path, name);
    if (!read_file(path, stored.octets, sizeof stored.octets, &length) || !parse(length)) {
        fprintf(stderr, "%s: ", stored.name);
        return failed("the stored card can't be read");
    }
    printf("%s  %s  %s  %lu octets\n", stored.name, stored.time, stored.sender, stored.length);
    return 0;
}

static int list_stored(void) {
    wchar_t pattern[PATH_UNITS];
    WIN32_FIND_DATAW entry;
    HANDLE find;
    DWORD error;
    int result = 0;
    stored_path(pattern, L"*");
    find = FindFirstFileW(pattern, &entry);
    if (find == INVALID_HANDLE_VALUE) {
        error = GetLastError();
        return error == ERROR_NO_MORE_FILES || error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND
                   ? 0 /* the driver makes the folder with the first card */
                   : failed("the stored cards can't be listed");
    }
    do {
        if (is_stored_name(entry.cFileName)) {
            result |= read_stored(entry.cFileName);
        }
    } while (FindNextFileW(find, &entry));
    error = GetLastError();
    FindClose(find);
    SetLastError(error);
    return error == ERROR_NO_MORE_FILES ? result : failed("the stored cards can't be listed");
}

static int inbox(HANDLE device) {
    put_octet(0);
    if (!call(device, ZPD_IOCTL_ACTIVATION, 1)) {
        return failed("the activation can't be asked for");
    }
    if (reply.octets[0] == 0) {
        printf("the service is not activated: cards that come are dropped\n");
    }
    return list_stored();
}

static int read_card(const wchar_t* name, const wchar_t* path) {
    if (!is_stored_name(name)) {
        SetLastError(ERROR_INVALID_NAME);
        return failed("no name of a stored card");
    }
    if (read_stored(name) != 0) {
        return 1;
    }
    return write_file(path, stored.card, stored.length) ? 0 : failed("the card can't be written");
}

static int usage(void) {
    fprintf(stderr,
            "usage: client activate APPLICATION | send CARD.vcf NUMBER | inbox | read NAME CARD.vcf\n"
            "A card has at most %u octets.\n",
            ZPD_CARD_MAX_SHORT_REFERENCE);
    return 2;
}

static int with_device(HANDLE device, int argc, wchar_t** argv) {
    if (argc == 3) {
        return activate(device, argv[2]);
    }
    return argc == 4 ? send_card(device, argv[2], argv[3]) : inbox(device);
}

static BOOL is(int argc, wchar_t** argv, const wchar_t* command, int arguments) {
    return argc == 2 + arguments && wcscmp(argv[1], command) == 0;
}

int wmain(int argc, wchar_t** argv) {
    HANDLE device;
    int result;
    if (is(argc, argv, L"read", 2)) {
        return read_card(argv[2], argv[3]);
    }
    if (!is(argc, argv, L"activate", 1) && !is(argc, argv, L"send", 2) && !is(argc, argv, L"inbox", 0)) {
        return usage();
    }
    device = CreateFileW(L"ZPD1:", GENERIC_READ | GENERIC_WRITE, 0, NULL, OPEN_EXISTING, 0, NULL);
    if (device == INVALID_HANDLE_VALUE) {
        return failed("ZPD1: can't be opened");
    }
    result = with_device(device, argc, argv);
    CloseHandle(device);
    return result;
}
