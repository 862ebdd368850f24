/// zpd.dll as a device manager has it: loaded, and called through its exports.
#pragma once

#include <gtest/gtest.h>
#include <ril.h>
#include <windows.h>

#include <string>

#include "com/zpd/main.h"

template <class object_t>
object_t* exported(HMODULE module, const char* name) {
    const FARPROC found = GetProcAddress(module, name);
    EXPECT_NE(found, nullptr) << name;
    return reinterpret_cast<object_t*>(reinterpret_cast<void*>(found));
}

/// The library, and what it exports.
struct zpd_t {
    std::string request(DWORD code, std::string input = {}) const {
        std::string output(256, '\0');
        DWORD returned = 0;
        EXPECT_TRUE(iocontrol(1, code, reinterpret_cast<BYTE*>(input.data()), static_cast<DWORD>(input.size()),
                              reinterpret_cast<BYTE*>(output.data()), static_cast<DWORD>(output.size()), &returned))
            << "code " << code << ", error " << GetLastError();
        return output.substr(0, returned);
    }
    /// The thread that asked the radio for the network's type.
    HANDLE sender() const {
        const auto* id = exported<DWORD>(GetModuleHandleW(L"ril.dll"), "asking_thread");
        return OpenThread(THREAD_SUSPEND_RESUME | SYNCHRONIZE, FALSE, *id);
    }
    void unload() const {
        EXPECT_TRUE(deinit(1));
        EXPECT_TRUE(FreeLibrary(module));
    }

    const HMODULE module = LoadLibraryW(L"zpd.dll");
    decltype(&ZPD_Init) init = exported<decltype(ZPD_Init)>(module, "ZPD_Init");
    decltype(&ZPD_Deinit) deinit = exported<decltype(ZPD_Deinit)>(module, "ZPD_Deinit");
    decltype(&ZPD_Open) open = exported<decltype(ZPD_Open)>(module, "ZPD_Open");
    decltype(&ZPD_Close) close = exported<decltype(ZPD_Close)>(module, "ZPD_Close");
    decltype(&ZPD_IOControl) iocontrol = exported<decltype(ZPD_IOControl)>(module, "ZPD_IOControl");
};

inline bool zpd_is_loaded() {
    return GetModuleHandleW(L"zpd.dll") != nullptr;
}

/// When the sender has ended, the library is gone.
inline void expect_gone_with(HANDLE sender) {
    EXPECT_EQ(WaitForSingleObject(sender, 60000), WAIT_OBJECT_0);
    EXPECT_FALSE(zpd_is_loaded());
    CloseHandle(sender);
}

/// A CDMA message of one datagram from the number, for the port of cards.
inline RILMESSAGE card_message(const std::string& card, const std::wstring& sender) {
    RILMESSAGE message{};
    message.dwParams = RIL_PARAM_M_TYPE;
    message.dwType = RIL_MSGTYPE_IN_CDMADELIVER;
    RIL_IN_CDMADELIVER& deliver = message.msgInCDMADeliver;
    sender.copy(deliver.raOrigAddress.wszAddress, MAXLENGTH_ADDRESS);
    const std::string header("\x05\x04\x23\xF4\0\0", 6);
    deliver.cbHdrLength = static_cast<DWORD>(header.copy(reinterpret_cast<char*>(deliver.rgbHdr), MAXLENGTH_HDR));
    deliver.cchMsgLength = static_cast<DWORD>(card.copy(reinterpret_cast<char*>(deliver.rgbMsg), MAXLENGTH_MSG));
    return message;
}
