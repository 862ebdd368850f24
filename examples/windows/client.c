/* Sends a card through the ZPD device: client CARD.vcf NUMBER */
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "com/zpd/zpd_ioctl.h"

static BYTE request[4 + ZPD_CARD_MAX_SHORT_REFERENCE + 2 + 4 + 2 * 255];
static DWORD length;

static void put(const void* octets, size_t count) {
    memcpy(request + length, octets, count);
    length += (DWORD)count;
}

static void put_u32(DWORD value) {
    const BYTE octets[4] = {(BYTE)value, (BYTE)(value >> 8), (BYTE)(value >> 16), (BYTE)(value >> 24)};
    put(octets, sizeof octets);
}

/* The request of ZPD_IOCTL_SEND_MESSAGE: the card, cut between characters, short references, the number. */
static BOOL make_request(const wchar_t* path, const wchar_t* number) {
    static char card[ZPD_CARD_MAX_SHORT_REFERENCE + 1];
    const BYTE flags[2] = {1, 0};
    size_t size;
    FILE* file = _wfopen(path, L"rb");
    if (file == NULL) {
        return FALSE;
    }
    size = fread(card, 1, sizeof card, file);
    fclose(file);
    if (size > ZPD_CARD_MAX_SHORT_REFERENCE || wcslen(number) > 255) {
        return FALSE;
    }
    put_u32((DWORD)size);
    put(card, size);
    put(flags, sizeof flags);
    put_u32((DWORD)(2 * wcslen(number)));
    put(number, 2 * wcslen(number));
    return TRUE;
}

int wmain(int argc, wchar_t** argv) {
    BYTE id[4];
    DWORD returned = 0;
    HANDLE device;
    if (argc != 3 || !make_request(argv[1], argv[2])) {
        fprintf(stderr, "usage: client CARD.vcf NUMBER, a card of at most %u octets\n", ZPD_CARD_MAX_SHORT_REFERENCE);
        return 2;
    }
    device = CreateFileW(L"ZPD1:", GENERIC_READ | GENERIC_WRITE, 0, NULL, OPEN_EXISTING, 0, NULL);
    if (device == INVALID_HANDLE_VALUE ||
        !DeviceIoControl(device, ZPD_IOCTL_SEND_MESSAGE, request, length, id, sizeof id, &returned, NULL)) {
        fprintf(stderr, "ZPD1: error %lu\n", GetLastError());
        return 1;
    }
    printf("message %u is on its way\n", id[0] | id[1] << 8 | id[2] << 16 | (unsigned)id[3] << 24);
    CloseHandle(device);
    return 0;
}
