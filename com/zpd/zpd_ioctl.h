/* The control codes of the ZPD device and the encoding of their buffers, and the paths and names that others share with
 * the driver: all that a client needs to know. Plain C.
 *
 * Buffers hold values one after another, without padding, little-endian:
 *   octet, flag     1 octet; a flag is false when 0
 *   u32             4 octets
 *   string          u32 count of octets, then the octets; no terminator
 *   string16        u32 count of octets, then UTF-16 code units, little-endian; no terminator
 *
 * A request that fails returns FALSE with the last error set. Errors common to all codes: ZPD_ERROR_INVALID_FUNCTION
 * for an unknown code, ZPD_ERROR_INVALID_DATA for input that is short (VERSION and MESSAGE_LIST refuse any input,
 * SEND_MESSAGE and COUNT_DATAGRAMS octets too many), ZPD_ERROR_INSUFFICIENT_BUFFER when the output does not fit (0
 * octets are returned then), ZPD_ERROR_CANNOT_IMPERSONATE, ZPD_ERROR_DEVICE_NOT_AVAILABLE when the driver is not
 * running, ZPD_ERROR_NOT_ENOUGH_MEMORY when it runs out of memory (nothing is returned; what it had begun may have
 * been done in part). */
#ifndef ZPD_IOCTL_H
#define ZPD_IOCTL_H

/* Device type 0x0200, buffered transfer, any access. */
#define ZPD_IOCTL_CODE(function) ((0x0200u << 16) | ((function) << 2))

/* Input none; output u32, the version of this interface: ZPD_INTERFACE_VERSION. */
#define ZPD_IOCTL_VERSION ZPD_IOCTL_CODE(1u)
#define ZPD_INTERFACE_VERSION 2u

/* Whether received cards are stored. Input octet mode (0 query, else set), for a set octet new status (0 or 1, else
 * ZPD_ERROR_INVALID_DATA); output octet, the status. A set request without room for the output changes nothing and
 * fails with ZPD_ERROR_INSUFFICIENT_BUFFER; LOG_OPTIONS, RIL_CAPACITY and INCOMING_DIR_SIZE set before they fail so. */
#define ZPD_IOCTL_ACTIVATION ZPD_IOCTL_CODE(2u)

/* The applications that use the service. Input octet mode: 0 list (output string, names joined by ";"), 1 register
 * (then string name), 2 unregister all; ZPD_ERROR_INVALID_DATA for any other. Names are not checked, and the list is
 * stored as it is told: a name with ";" is several when the driver starts again. An empty name is not seen in the list
 * and is gone by then; until then it is looked for among the installed ones like any other. */
#define ZPD_IOCTL_APPLICATION ZPD_IOCTL_CODE(3u)
#define ZPD_APPLICATION_LIST 0u
#define ZPD_APPLICATION_REGISTER 1u
#define ZPD_APPLICATION_CLEAR 2u

/* Launches the application associated with a URI. Input string16 URI; no output. ZPD_ERROR_LAUNCH_FAILED. */
#define ZPD_IOCTL_LAUNCH_APP ZPD_IOCTL_CODE(4u)

/* Sends a card. Input string card, flag is_utf8 (cut between characters only), flag use_long_ie (16-bit concatenation
 * reference), string16 phone number; output u32, the message id. ZPD_ERROR_TOO_MANY_DATAGRAMS over 255 datagrams,
 * ZPD_ERROR_OUT_OF_RANGE when no cut is possible. With ZPD_ERROR_DEVICE_NOT_AVAILABLE of a driver that runs (4
 * octets are returned) the u32 is ZPD_MESSAGE_ID_ZERO when the message was given the id 0 (it is sent like any other),
 * else what opening the radio session returned. */
#define ZPD_IOCTL_SEND_MESSAGE ZPD_IOCTL_CODE(5u)
#define ZPD_MESSAGE_ID_ZERO 0xFFFFFFFFu
#define ZPD_MESSAGE_ID_MAX 0xFFFFu

/* How many datagrams a card takes. Input as for sending, without the phone number; output u32. */
#define ZPD_IOCTL_COUNT_DATAGRAMS ZPD_IOCTL_CODE(6u)

/* The messages that are not closed. Input none; output u32 their number, u32 the number of ids that follow (as many as
 * fit), u32 each id, ascending. */
#define ZPD_IOCTL_MESSAGE_LIST ZPD_IOCTL_CODE(7u)

/* Input u32 message id; output u32 number of datagrams, then for each u32 status (ZPD_STATUS_*) and u32 reserved (0).
 * ZPD_ERROR_OUT_OF_RANGE for an unknown id. */
#define ZPD_IOCTL_MESSAGE_STATUS ZPD_IOCTL_CODE(8u)
#define ZPD_STATUS_RELEASED 0xFFFFFFFFu /* of a closed message: done with, its record is gone */
#define ZPD_STATUS_QUEUED 0u
#define ZPD_STATUS_SUBMITTED 1u /* handed to the radio */
#define ZPD_STATUS_FAILED 2u    /* the submission was refused */
#define ZPD_STATUS_DEFERRED 3u  /* not submitted, because another datagram of the message failed */
#define ZPD_STATUS_SENT 4u      /* the radio confirmed it */

/* Input u32 message id; no output. The message's record is released as its datagrams are done with.
 * ZPD_ERROR_OUT_OF_RANGE for an unknown id and for a message that is closed already. */
#define ZPD_IOCTL_MESSAGE_CLOSE ZPD_IOCTL_CODE(9u)

/* A test hook on the settings. No input, no output. */
#define ZPD_IOCTL_FOO ZPD_IOCTL_CODE(10u)

/* Logging. Input octet mode (0 query, else set), for a set three octets: enabled (0..1), debug output level (0..7),
 * file level (0..7; 0 means no log file); output the three octets in force. ZPD_ERROR_OUT_OF_RANGE changes nothing. */
#define ZPD_IOCTL_LOG_OPTIONS ZPD_IOCTL_CODE(11u)

/* How many datagrams may be with the radio at once. Input octet mode, for a set octet 1..255 (ZPD_ERROR_OUT_OF_RANGE
 * for 0, which changes nothing); output octet. */
#define ZPD_IOCTL_RIL_CAPACITY ZPD_IOCTL_CODE(12u)

/* The bound of the incoming directory: a card is stored while no more than so many files are in it, so that one file
 * more accumulates; 0 for any number. Input octet mode, for a set u32 0..16777216 (ZPD_ERROR_OUT_OF_RANGE above, which
 * changes nothing); output u32. */
#define ZPD_IOCTL_INCOMING_DIR_SIZE ZPD_IOCTL_CODE(13u)
#define ZPD_INCOMING_DIR_SIZE_MAX 16777216u

/* A value of the contacts application's settings. Input string16 name; output u32 registry type, string value.
 * ZPD_ERROR_NOT_FOUND, ZPD_ERROR_ACCESS. */
#define ZPD_IOCTL_PIM_CONTACTS_VAR ZPD_IOCTL_CODE(14u)

/* Win32 error codes, as the requests set them. */
#define ZPD_ERROR_INVALID_FUNCTION 1u
#define ZPD_ERROR_NOT_FOUND 2u
#define ZPD_ERROR_ACCESS 5u
#define ZPD_ERROR_NOT_ENOUGH_MEMORY 8u
#define ZPD_ERROR_INVALID_DATA 13u
#define ZPD_ERROR_INSUFFICIENT_BUFFER 122u
#define ZPD_ERROR_OUT_OF_RANGE 1002u
#define ZPD_ERROR_LAUNCH_FAILED 1359u
#define ZPD_ERROR_CANNOT_IMPERSONATE 1368u
#define ZPD_ERROR_DEVICE_NOT_AVAILABLE 4319u
#define ZPD_ERROR_TOO_MANY_DATAGRAMS 6724u

/* The port that every datagram is addressed to, and the longest cards (octets) that 255 datagrams hold. */
#define ZPD_SERVICE_PORT 0x23F4u
#define ZPD_CARD_MAX_SHORT_REFERENCE 32640u
#define ZPD_CARD_MAX_LONG_REFERENCE 32385u

/* Directories, by their names from the top of the object store down, each an initializer's elements: the stored cards
 * lie in the first, the log file in the second. */
#define ZPD_INCOMING_DIRECTORY "Application Data", "PUBLIC", "VARKON", "ZPD", "INCOMING"
#define ZPD_LOG_DIRECTORY "Application Data", "PUBLIC", "VARKON", "ZPD", "LOG"
#define ZPD_LOG_FILE "zpd.log"

/* A stored card is a file whose name is an MD5 digest (32 hexadecimal digits in lower case). It holds the time of
 * storing (decimal, seconds since 1970-01-01 UTC), the first mark, the sender's address (UTF-8), the second mark, and
 * then the card's octets. */
#define ZPD_STORED_NAME_LENGTH 32u
#define ZPD_STORED_NAME_DIGITS "0123456789abcdef"
#define ZPD_STORED_AFTER_TIME ':'
#define ZPD_STORED_AFTER_SENDER '\n'

/* The registry key of the settings, under HKEY_LOCAL_MACHINE, and the value of it (REG_DWORD, 0 or 1) that may be set
 * while the driver does not run: whether received cards are stored. */
#define ZPD_SETTINGS_KEY "\\Software\\Varkon\\Drivers\\ZPD\\daemon"
#define ZPD_SETTING_ACTIVATED "activated"

#endif
