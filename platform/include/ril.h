/// The Radio Interface Layer of Windows CE, as published: the calls, structures and constants that the driver uses.
///
/// Every call returns at once: a negative HRESULT when the request could not be started, else the identifier of the
/// request, which the result callback later names. Callbacks run on threads of the radio layer, never on the caller's;
/// their data is valid during the callback only.
///
/// The driver relies on that. A result that comes inside the call that starts its request, on the same thread, finds no
/// request and is lost; its datagram stays with the radio for ever. A callback inside RIL_Initialize, on the thread
/// that starts the driver, finds no driver. Callbacks on other threads wait for the driver's start to end, so
/// RIL_Initialize must not wait for them.
#pragma once

#include <windows.h>

using HRIL = HANDLE;

constexpr DWORD RIL_RESULT_OK = 1;
constexpr DWORD RIL_RESULT_ERROR = 3;  // the data is one DWORD, the radio error

/// The radio errors that a result carries, 0x80050000 or more: facility RIL, the layer's own numbers.
constexpr HRESULT RIL_E_PHONEFAILURE = static_cast<HRESULT>(0x80050001);
constexpr HRESULT RIL_E_NETWORKTIMEOUT = static_cast<HRESULT>(0x8005001A);
constexpr HRESULT RIL_E_RADIONOTPRESENT = static_cast<HRESULT>(0x80050046);
/// +CMS ERROR numbers (3GPP TS 27.005 3.2.5) travel in the low 16 bits below this base.
constexpr HRESULT RIL_E_CMSERROR_BASE = static_cast<HRESULT>(0x80060000);

constexpr DWORD RIL_NCLASS_MESSAGE = 0x00020000;
constexpr DWORD RIL_NCLASS_NETWORK = 0x00040000;
constexpr DWORD RIL_NOTIFY_MESSAGE = 0x00020001;        // data: a RILMESSAGE
constexpr DWORD RIL_NOTIFY_SYSTEMCHANGED = 0x00040005;  // data: a DWORD of RIL_SYSTEMTYPE bits

constexpr DWORD RIL_SYSTEMTYPE_NONE = 0x000;
constexpr DWORD RIL_SYSTEMTYPE_IS95A = 0x001;
constexpr DWORD RIL_SYSTEMTYPE_IS95B = 0x002;
constexpr DWORD RIL_SYSTEMTYPE_1XRTTPACKET = 0x004;
constexpr DWORD RIL_SYSTEMTYPE_GSM = 0x008;
constexpr DWORD RIL_SYSTEMTYPE_GPRS = 0x010;
constexpr DWORD RIL_SYSTEMTYPE_EDGE = 0x020;
constexpr DWORD RIL_SYSTEMTYPE_1XEVDOPACKET = 0x040;
constexpr DWORD RIL_SYSTEMTYPE_1XEVDVPACKET = 0x080;
constexpr DWORD RIL_SYSTEMTYPE_UMTS = 0x100;
constexpr DWORD RIL_SYSTEMTYPE_HSDPA = 0x200;

constexpr DWORD RIL_PARAM_A_TYPE = 0x1;
constexpr DWORD RIL_PARAM_A_NUMPLAN = 0x2;
constexpr DWORD RIL_PARAM_A_ADDRESS = 0x4;
constexpr DWORD RIL_ADDRTYPE_UNKNOWN = 0;
constexpr DWORD RIL_ADDRTYPE_INTERNATIONAL = 1;
constexpr DWORD RIL_ADDRTYPE_NATIONAL = 2;
constexpr DWORD RIL_ADDRTYPE_ALPHANUM = 5;
constexpr DWORD RIL_NUMPLAN_UNKNOWN = 0;
constexpr DWORD RIL_NUMPLAN_TELEPHONE = 1;
constexpr int MAXLENGTH_ADDRESS = 256;
constexpr int MAXLENGTH_SUBADDRESS = 256;
struct RILADDRESS {
    DWORD cbSize;
    DWORD dwParams;  // which members are valid: RIL_PARAM_A_*
    DWORD dwType;
    DWORD dwNumPlan;
    WCHAR wszAddress[MAXLENGTH_ADDRESS];
};
static_assert(sizeof(RILADDRESS) == 0x210);

struct RILSUBADDRESS {
    DWORD cbSize;
    DWORD dwParams;
    DWORD dwType;
    WCHAR wszSubAddress[MAXLENGTH_SUBADDRESS];
};
static_assert(sizeof(RILSUBADDRESS) == 0x20C);

constexpr DWORD RIL_PARAM_MDCS_TYPE = 0x1;
constexpr DWORD RIL_PARAM_MDCS_ALPHABET = 0x8;
constexpr DWORD RIL_DCSTYPE_GENERAL = 1;
constexpr DWORD RIL_DCSALPHABET_8BIT = 2;
constexpr DWORD RIL_DCSALPHABET_UCS2 = 3;
struct RILMSGDCS {
    DWORD cbSize;
    DWORD dwParams;  // which members are valid: RIL_PARAM_MDCS_*
    DWORD dwType;
    DWORD dwFlags;
    DWORD dwMsgClass;
    DWORD dwAlphabet;
    DWORD dwIndication;
    DWORD dwLanguage;
};
static_assert(sizeof(RILMSGDCS) == 0x20);

constexpr DWORD RIL_MSGTYPE_IN_DELIVER = 0x00010001;
constexpr DWORD RIL_MSGTYPE_IN_CDMADELIVER = 0x00010010;
constexpr DWORD RIL_MSGTYPE_OUT_SUBMIT = 0x00020001;
constexpr DWORD RIL_MSGTYPE_OUT_CDMASUBMIT = 0x00020020;
constexpr DWORD RIL_MSGFLAG_MORETOSEND = 0x1;
constexpr DWORD RIL_MSGFLAG_HEADER = 0x4;
constexpr DWORD RIL_MSGPROTOCOL_SMETOSME = 1;
constexpr DWORD RIL_MSGVP_RELATIVE = 1;
constexpr DWORD RIL_MSGDISPLAYMODE_IMMEDIATE = 1;
constexpr DWORD RIL_MSGDISPLAYMODE_USERDEFAULT = 3;
constexpr DWORD RIL_MSGPRIORITY_NORMAL = 1;
constexpr DWORD RIL_MSGPRIVACYCLASS_NOTRESTRICTED = 1;
constexpr DWORD RIL_MSGTELESERVICE_MESSAGING = 2;
constexpr DWORD RIL_MSGCODING_7BITASCII = 2;
constexpr DWORD RIL_SENDOPT_PERSISTLINK = 1;  // RIL_SendMsg option: further messages follow soon

/// Which members of a RILMESSAGE are valid. The same bits mean other things in CDMA messages.
constexpr DWORD RIL_PARAM_M_TYPE = 0x00000002;
constexpr DWORD RIL_PARAM_M_FLAGS = 0x00000004;
constexpr DWORD RIL_PARAM_M_ORIGADDRESS = 0x00000008;
constexpr DWORD RIL_PARAM_M_DESTADDRESS = 0x00000020;
constexpr DWORD RIL_PARAM_M_SCRECEIVETIME = 0x00000040;
constexpr DWORD RIL_PARAM_M_PROTOCOLID = 0x00000200;
constexpr DWORD RIL_PARAM_M_DATACODING = 0x00000800;
constexpr DWORD RIL_PARAM_M_VPFORMAT = 0x00004000;
constexpr DWORD RIL_PARAM_M_VP = 0x00008000;
constexpr DWORD RIL_PARAM_M_HDRLENGTH = 0x00800000;
constexpr DWORD RIL_PARAM_M_MSGLENGTH = 0x01000000;
constexpr DWORD RIL_PARAM_M_HDR = 0x04000000;
constexpr DWORD RIL_PARAM_M_MSG = 0x08000000;

constexpr int MAXLENGTH_HDR = 256;
constexpr int MAXLENGTH_MSG = 256;

struct RIL_IN_DELIVER {
    RILADDRESS raOrigAddress;
    DWORD dwProtocolID;
    RILMSGDCS rmdDataCoding;
    SYSTEMTIME stSCReceiveTime;
    DWORD cbHdrLength;   // octets of rgbHdr: the user data header without its length octet
    DWORD cchMsgLength;  // octets of rgbMsg
    BYTE rgbHdr[MAXLENGTH_HDR];
    BYTE rgbMsg[MAXLENGTH_MSG];
};

struct RIL_OUT_SUBMIT {
    RILADDRESS raDestAddress;
    DWORD dwProtocolID;
    RILMSGDCS rmdDataCoding;
    DWORD dwVPFormat;
    SYSTEMTIME stVP;
    DWORD cbHdrLength;
    union {
        DWORD cchMsgLength;
        DWORD cbBodyLength;
    };
    BYTE rgbHdr[MAXLENGTH_HDR];
    BYTE rgbMsg[MAXLENGTH_MSG];
};

struct RIL_OUT_CDMASUBMIT {
    RILADDRESS raDestAddress;
    RILSUBADDRESS rsaDestSubaddr;
    BOOL bDigit;
    SYSTEMTIME stValidityPeriodAbs;
    SYSTEMTIME stValidityPeriodRel;
    SYSTEMTIME stDeferredDelTimeAbs;
    SYSTEMTIME stDeferredDelTimeRel;
    BOOL bDeliveryAckRequest;
    BOOL bUserAckRequest;
    BOOL bBearerReplyRequest;
    DWORD dwReplySeqNumber;
    DWORD dwMsgDisplayMode;
    RILADDRESS raCallBackNumber;
    DWORD dwMsgPriority;
    DWORD dwMsgPrivacy;
    DWORD dwTeleservice;
    DWORD dwMsgID;
    DWORD dwMsgLang;
    DWORD dwMsgEncoding;
    DWORD cbHdrLength;
    union {
        DWORD cchMsgLength;
        DWORD cbBodyLength;
    };
    BYTE rgbHdr[MAXLENGTH_HDR];
    BYTE rgbMsg[MAXLENGTH_MSG];
};

struct RIL_IN_CDMADELIVER {
    RILADDRESS raOrigAddress;
    RILSUBADDRESS rsaOrigSubaddr;
    SYSTEMTIME stSCReceiveTime;
    SYSTEMTIME stValidityPeriodAbs;
    RILADDRESS raCallBackNumber;
    DWORD dwMsgPriority;
    DWORD dwMsgPrivacy;
    DWORD dwTeleservice;
    DWORD dwMsgID;
    DWORD dwMsgEncoding;
    DWORD cbHdrLength;
    DWORD cchMsgLength;
    BYTE rgbHdr[MAXLENGTH_HDR];
    BYTE rgbMsg[MAXLENGTH_MSG];
};

struct RILMESSAGE {
    DWORD cbSize;
    DWORD dwParams;  // which members are valid: RIL_PARAM_M_*
    RILADDRESS raSvcCtrAddress;
    DWORD dwType;   // RIL_MSGTYPE_*: which member of the union
    DWORD dwFlags;  // RIL_MSGFLAG_*
    union {
        RIL_IN_DELIVER msgInDeliver;
        RIL_OUT_SUBMIT msgOutSubmit;
        RIL_IN_CDMADELIVER msgInCDMADeliver;
        RIL_OUT_CDMASUBMIT msgOutCDMASubmit;
    };
};
static_assert(sizeof(RILMESSAGE) == 0xAC4);

/// `result_code` is RIL_RESULT_*; `request` what the starting call returned.
using RILRESULTCALLBACK = void(CALLBACK*)(DWORD result_code, HRESULT request, const void* data, DWORD data_size,
                                          DWORD parameter);
/// `code` is RIL_NOTIFY_*.
using RILNOTIFYCALLBACK = void(CALLBACK*)(DWORD code, const void* data, DWORD data_size, DWORD parameter);

extern "C" {

/// Opens a session with the radio on port `index` and stores its handle. S_OK, S_FALSE, or a failure.
HRESULT RIL_Initialize(DWORD index, RILRESULTCALLBACK result, RILNOTIFYCALLBACK notify, DWORD notification_classes,
                       DWORD parameter, HRIL* session);
/// Ends a session: when it returns no callback of the session runs or will run. Not from a callback.
HRESULT RIL_Deinitialize(HRIL session);
/// Submits a short message; `message` is copied. The result is RIL_RESULT_OK with a DWORD, the message reference, or
/// RIL_RESULT_ERROR.
HRESULT RIL_SendMsg(HRIL session, const RILMESSAGE* message, DWORD options);
/// Asks for the radio's system type. The result is RIL_RESULT_OK with a DWORD of RIL_SYSTEMTYPE_* bits.
HRESULT RIL_GetCurrentSystemType(HRIL session);
}
