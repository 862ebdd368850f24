/* Contact cards by SMS: a client of the ZPD service, which `zpd serve` is. It hands in cards and follows them, reads
 * those that came, and hears of what happens. C99; in C++ <zpd/client.hpp> is more comfortable.
 *
 * Results. A call that can fail returns ZPD_OK or another of the results below, and leaves the words for it in its
 * handle. What it gives goes through its last parameters, which are NULL or 0 after a failure, and may be NULL where
 * it is not wanted. Any other parameter that must not be NULL and is gives ZPD_BAD_ARGUMENT; accessors take NULL for an
 * object without anything in it.
 *
 * Ownership. What a call gives as an object belongs to the caller, to be freed with the function of its name. Texts and
 * octets of an object last as long as the object; those that a call gives by themselves, and the words of a failure,
 * until the next call with the same handle. Texts are UTF-8, end with a NUL and are never NULL: what is not there is
 * "". So are numbers 0. Times are in seconds since 1970.
 *
 * Waiting. A call waits for the service's answer, as a rule for milliseconds, for 30 seconds at most (a long list comes
 * in several answers), and as long again for its connection where the service takes none. zpd_watch and zpd_wait wait
 * as long as they are told, besides. Only zpd_events_next never waits.
 *
 * Threads and processes. Different handles may be used at the same time, one handle by one thread at a time; objects
 * that calls gave may be read by several. The library starts no thread, handles no signal and has no state but the
 * handles. After a fork a client goes on in both processes, each of which gets a connection of its own; zpd_events_t
 * goes on in the one that made it.
 *
 * Versions. What is here stays, in its meaning and its binary form, for as long as the library is called
 * libzpd-client.so.1; results, kinds and states may come to be added. Services of other versions are understood as far
 * as they have what is asked. */
#ifndef ZPD_CLIENT_H
#define ZPD_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define ZPD_API __attribute__((visibility("default")))
#else
#define ZPD_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What a call came to. */
enum {
    ZPD_OK = 0,
    ZPD_BAD_ARGUMENT = 1, /* an argument is none: NULL, an empty card, a number with letters in it */
    ZPD_NO_SERVICE = 2,   /* no service runs on the device */
    ZPD_NO_ACCESS = 3,    /* the device does not let this user in, or somebody else serves it */
    ZPD_BUSY = 4,         /* the service has as many clients as it takes (64) */
    ZPD_NO_ANSWER = 5,    /* the service ended, or did not answer in time: what was asked may have been done or not */
    ZPD_REFUSED = 6,      /* the service or its driver refused, for another reason than those below */
    ZPD_NOT_FOUND = 7,    /* there is no such message or card */
    ZPD_NOT_NOW = 8,      /* nothing like that can be done with the message as it is */
    ZPD_FULL = 9,         /* the outbox holds as many messages as it may */
    ZPD_NOT_WRITTEN = 10, /* the service could not write it to its disk: nothing was done */
    ZPD_NO_MEMORY = 11    /* this process ran out of memory, or of descriptors */
};

/* "1.3.0" */
ZPD_API const char* zpd_library_version(void);
/* What a result is, in general and in English. Of the program's life. */
ZPD_API const char* zpd_result_text(int result);

/* A client of one device. */
typedef struct zpd_client zpd_client_t;

/* Of a device, by its name or its socket's path (what has a "/" or a "." in it); NULL for ZPD1. Nothing is connected
 * yet: the first call does that, and each one after the service went. NULL when there is no memory. */
ZPD_API zpd_client_t* zpd_client_new(const char* device);
/* NULL is let be, as by all that free. */
ZPD_API void zpd_client_free(zpd_client_t* client);
/* Why the last call with it failed; "" after one that did not. */
ZPD_API const char* zpd_client_error(const zpd_client_t* client);

/* The version of the driver's interface. */
ZPD_API int zpd_driver_version(zpd_client_t* client, uint32_t* version);
/* How the service, its modem and its outbox fare: a JSON object, what `zpd status --json` prints. */
ZPD_API int zpd_status(zpd_client_t* client, const char** json);
/* Whether received cards are stored: 0 or 1. */
ZPD_API int zpd_activation(zpd_client_t* client, int* active);
ZPD_API int zpd_set_activation(zpd_client_t* client, int active);

/* How a card is sent. Members may come to be added at the end: `size` is sizeof(zpd_options_t), so that the library
 * knows which the program has. All others may be 0; ZPD_OPTIONS_INIT is that. */
typedef struct zpd_options {
    size_t size;
    uint64_t expires;   /* when it is set aside if it is not sent; 0 for in two days, or ZPD_NEVER */
    const char* token;  /* 1 to 64 octets that no other card has: handed in again with it, a card is not sent again */
    const char* file;   /* the name of its file, for people; 255 octets at most */
    int long_reference; /* 1 for 16-bit concatenation references, for 32385 octets instead of 32640 */
} zpd_options_t;

#define ZPD_OPTIONS_INIT \
    { sizeof(zpd_options_t), 0, NULL, NULL, 0 }
#define ZPD_NEVER UINT64_MAX

/* How many datagrams, each of which costs an SMS, a card takes. `options` may be NULL, as for zpd_send. */
ZPD_API int zpd_count(zpd_client_t* client, const void* card, size_t size, const zpd_options_t* options,
                      uint32_t* datagrams);

/* Hands in a card: any octets, which are not looked into. `number` is 1 to 20 digits, with a "+" before an
 * international one. With ZPD_OK the message is on the service's disk and is sent, whatever becomes of the service or
 * of this program, unless it is cancelled, expires, or the network refuses it for good. After ZPD_NO_ANSWER it may be
 * so too: a program that must know hands in again with the same token, which gives the same id. */
ZPD_API int zpd_send(zpd_client_t* client, const void* card, size_t size, const char* number,
                     const zpd_options_t* options, uint64_t* id);

/* A message of the outbox, as it was when the service was asked. */
typedef struct zpd_message zpd_message_t;

enum {
    ZPD_MESSAGE_OTHER = 0,   /* one that this version does not know; zpd_message_state_text tells */
    ZPD_MESSAGE_WAITING = 1, /* its turn comes, or its number is held back */
    ZPD_MESSAGE_SENDING = 2,
    ZPD_MESSAGE_SENT = 3,       /* the network took every datagram */
    ZPD_MESSAGE_CANCELLING = 4, /* a datagram is on its way still */
    ZPD_MESSAGE_CANCELLED = 5,
    ZPD_MESSAGE_SET_ASIDE = 6 /* it goes no more by itself: zpd_message_reason tells why */
};

ZPD_API uint64_t zpd_message_id(const zpd_message_t* message);
ZPD_API int zpd_message_state(const zpd_message_t* message);
ZPD_API const char* zpd_message_state_text(const zpd_message_t* message);
/* 1 when it is sent, cancelled or set aside: nothing becomes of it by itself any more. */
ZPD_API int zpd_message_is_over(const zpd_message_t* message);
/* Another one when its state, its progress or its reason is another; for zpd_watch. */
ZPD_API uint64_t zpd_message_version(const zpd_message_t* message);
ZPD_API const char* zpd_message_number(const zpd_message_t* message);
ZPD_API const char* zpd_message_file(const zpd_message_t* message);
ZPD_API uint64_t zpd_message_size(const zpd_message_t* message); /* octets of the card */
ZPD_API uint32_t zpd_message_datagrams(const zpd_message_t* message);
ZPD_API uint32_t zpd_message_sent(const zpd_message_t* message); /* of the datagrams */
ZPD_API uint64_t zpd_message_handed_in(const zpd_message_t* message);
ZPD_API uint64_t zpd_message_expires(const zpd_message_t* message);  /* 0 for never */
ZPD_API uint64_t zpd_message_next_try(const zpd_message_t* message); /* of one that is held back */
/* Why it was refused the last time, and what helps. */
ZPD_API const char* zpd_message_reason(const zpd_message_t* message);
ZPD_API const char* zpd_message_advice(const zpd_message_t* message);
/* What stands between it and the network now. */
ZPD_API const char* zpd_message_waits_for(const zpd_message_t* message);
/* All of it, as `zpd outbox --json` prints one. */
ZPD_API const char* zpd_message_json(const zpd_message_t* message);
ZPD_API void zpd_message_free(zpd_message_t* message);

ZPD_API int zpd_outbox_find(zpd_client_t* client, uint64_t id, zpd_message_t** message);
/* The message as soon as its version is another than the one that is known, and at the latest after so many
 * milliseconds. This and zpd_wait bear with a service that starts again: within their time they wait 15 seconds for
 * it. */
ZPD_API int zpd_watch(zpd_client_t* client, uint64_t id, uint64_t version, uint32_t milliseconds,
                      zpd_message_t** message);
/* The same, when it is over. ZPD_OK also when the time is: zpd_message_is_over tells. */
ZPD_API int zpd_wait(zpd_client_t* client, uint64_t id, uint32_t milliseconds, zpd_message_t** message);
/* Gives a message up; one that is over is left as it is. */
ZPD_API int zpd_cancel(zpd_client_t* client, uint64_t id, zpd_message_t** message);
/* Has one that was set aside sent after all, and one whose number is held back tried at once; ZPD_NOT_NOW for any
 * other. `expires` as in the options. */
ZPD_API int zpd_retry(zpd_client_t* client, uint64_t id, uint64_t expires, zpd_message_t** message);

typedef struct zpd_messages zpd_messages_t;

/* The outbox, the oldest first: what is not sent, or with `all` also what was sent or cancelled and is known still. */
ZPD_API int zpd_outbox(zpd_client_t* client, int all, zpd_messages_t** messages);
ZPD_API size_t zpd_messages_count(const zpd_messages_t* messages);
/* The list's own; NULL behind its end. */
ZPD_API const zpd_message_t* zpd_messages_at(const zpd_messages_t* messages, size_t index);
ZPD_API void zpd_messages_free(zpd_messages_t* messages);

/* A received card. */
typedef struct zpd_card zpd_card_t;

ZPD_API uint64_t zpd_card_number(const zpd_card_t* card); /* 0 for one that cannot be numbered */
/* The names on it, ", " between them. This and the sender were written by a stranger: mind control characters. */
ZPD_API const char* zpd_card_name(const zpd_card_t* card);
ZPD_API const char* zpd_card_sender(const zpd_card_t* card); /* a phone number, which can be forged */
ZPD_API uint64_t zpd_card_received(const zpd_card_t* card);
ZPD_API uint64_t zpd_card_size(const zpd_card_t* card); /* octets */
/* All of it, as `zpd inbox --json` prints one. */
ZPD_API const char* zpd_card_json(const zpd_card_t* card);

typedef struct zpd_cards zpd_cards_t;

/* The received cards with greater numbers than `after`, the oldest first. */
ZPD_API int zpd_inbox(zpd_client_t* client, uint64_t after, zpd_cards_t** cards);
ZPD_API size_t zpd_cards_count(const zpd_cards_t* cards);
/* The list's own; NULL behind its end. */
ZPD_API const zpd_card_t* zpd_cards_at(const zpd_cards_t* cards, size_t index);
ZPD_API void zpd_cards_free(zpd_cards_t* cards);

/* The octets of a card, as they were sent. */
ZPD_API int zpd_card_octets(zpd_client_t* client, uint64_t number, const void** octets, size_t* size);
ZPD_API int zpd_card_remove(zpd_client_t* client, uint64_t number);

/* Something that happened. */
typedef struct zpd_event zpd_event_t;

enum {
    ZPD_EVENT_OTHER = 0,   /* one that this version does not know; zpd_event_kind_text tells */
    ZPD_EVENT_STORED = 1,  /* a card came */
    ZPD_EVENT_DROPPED = 2, /* a card came, and was not stored */
    ZPD_EVENT_MODEM = 3,   /* the modem, its SIM or its network are there, or not */
    ZPD_EVENT_QUEUED = 4,  /* a message was handed in; the next three: what became of one */
    ZPD_EVENT_SENT = 5,
    ZPD_EVENT_SET_ASIDE = 6,
    ZPD_EVENT_CANCELLED = 7,
    ZPD_EVENT_SERVICE = 8
};

ZPD_API uint64_t zpd_event_id(const zpd_event_t* event); /* they only rise */
ZPD_API uint64_t zpd_event_time(const zpd_event_t* event);
ZPD_API int zpd_event_kind(const zpd_event_t* event);
ZPD_API const char* zpd_event_kind_text(const zpd_event_t* event);
/* A line for a person. */
ZPD_API const char* zpd_event_text(const zpd_event_t* event);
ZPD_API uint64_t zpd_event_message(const zpd_event_t* event); /* the id of the message that it is about */
ZPD_API uint64_t zpd_event_card(const zpd_event_t* event);    /* the number of the card that was stored */
/* The other side's phone number: where the message goes, or where the card came from. */
ZPD_API const char* zpd_event_number(const zpd_event_t* event);
/* All of it, as `zpd events --json` prints one. */
ZPD_API const char* zpd_event_json(const zpd_event_t* event);
ZPD_API void zpd_event_free(zpd_event_t* event);

/* Tells what happens, one event after the other, for as long as it lives: also what happened while the service was
 * away, and each once. */
typedef struct zpd_events zpd_events_t;

/* Begins after the event of this id (0 for the first that is known) and not before this time (0 for any): with
 * time(NULL) for what happens from now on, with the id of the last event that it has seen for a program that starts
 * again. `device` as for zpd_client_new. NULL when there is no memory or no descriptor. */
ZPD_API zpd_events_t* zpd_events_new(const char* device, uint64_t after, uint64_t since);
ZPD_API void zpd_events_free(zpd_events_t* events);

/* For poll, epoll and the loops that are built on them: readable when zpd_events_next has something to do. It stays the
 * same, whatever becomes of the service, and is closed by zpd_events_free; it is only to be waited for. */
ZPD_API int zpd_events_descriptor(const zpd_events_t* events);

/* The next event; `event` must not be NULL. Never waits: ZPD_OK and NULL when there is none now. Another result when
 * the service cannot be asked now: it is asked again after a second, by the call that the descriptor brings about. */
ZPD_API int zpd_events_next(zpd_events_t* events, zpd_event_t** event);
/* Why the service could not be asked; "" when it can. */
ZPD_API const char* zpd_events_error(const zpd_events_t* events);

#ifdef __cplusplus
}
#endif

#endif
