#!/usr/bin/env python3
"""send_and_wait.py CARD.vcf NUMBER [DEVICE]: sends a card, waits for one that comes, and writes that one's octets to the
standard output. The service must be activated. libzpd-client over ctypes, its events in asyncio's loop."""
import asyncio
import ctypes
import sys
import time

STORED = 1  # ZPD_EVENT_STORED

zpd = ctypes.CDLL("libzpd-client.so.1")
handle, number, text = ctypes.c_void_p, ctypes.c_uint64, ctypes.c_char_p
for name, result, arguments in [
    ("zpd_client_new", handle, [text]),
    ("zpd_client_free", None, [handle]),
    ("zpd_client_error", text, [handle]),
    ("zpd_send", ctypes.c_int, [handle, text, ctypes.c_size_t, text, ctypes.c_void_p, ctypes.POINTER(number)]),
    ("zpd_card_octets", ctypes.c_int, [handle, number, ctypes.POINTER(handle), ctypes.POINTER(ctypes.c_size_t)]),
    ("zpd_events_new", handle, [text, number, number]),
    ("zpd_events_free", None, [handle]),
    ("zpd_events_descriptor", ctypes.c_int, [handle]),
    ("zpd_events_next", ctypes.c_int, [handle, ctypes.POINTER(handle)]),
    ("zpd_events_error", text, [handle]),
    ("zpd_event_kind", ctypes.c_int, [handle]),
    ("zpd_event_card", number, [handle]),
    ("zpd_event_text", text, [handle]),
    ("zpd_event_free", None, [handle]),
]:
    getattr(zpd, name).restype = result
    getattr(zpd, name).argtypes = arguments


def tell(octets):
    print(octets.decode(errors="replace"), file=sys.stderr)


def check(client, result):
    if result != 0:
        sys.exit(zpd.zpd_client_error(client).decode(errors="replace"))


def take_events(events, came):
    """The number of the first card that came is the result."""
    event = handle()
    while zpd.zpd_events_next(events, ctypes.byref(event)) == 0 and event:
        tell(zpd.zpd_event_text(event))
        if zpd.zpd_event_kind(event) == STORED and not came.done():
            came.set_result(zpd.zpd_event_card(event))
        zpd.zpd_event_free(event)
    if zpd.zpd_events_error(events):
        tell(zpd.zpd_events_error(events))


def octets_of(client, card):
    octets, size = handle(), ctypes.c_size_t()
    check(client, zpd.zpd_card_octets(client, card, ctypes.byref(octets), ctypes.byref(size)))
    return ctypes.string_at(octets, size.value)


async def main(path, to, device=None):
    device = device and device.encode()
    with open(path, "rb") as file:
        card = file.read()
    client, events = zpd.zpd_client_new(device), zpd.zpd_events_new(device, 0, int(time.time()))
    loop = asyncio.get_running_loop()
    came = loop.create_future()
    loop.add_reader(zpd.zpd_events_descriptor(events), take_events, events, came)
    check(client, zpd.zpd_send(client, card, len(card), to.encode(), None, None))
    sys.stdout.buffer.write(octets_of(client, await came))
    loop.remove_reader(zpd.zpd_events_descriptor(events))
    zpd.zpd_events_free(events)
    zpd.zpd_client_free(client)


if __name__ == "__main__":
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    asyncio.run(main(*sys.argv[1:]))
