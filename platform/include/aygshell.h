/// The one operation of the shell library that the driver uses.
#pragma once

#include <windows.h>

/// Launches the application that is associated with a URI and returns without waiting for it. `uri` stays the caller's.
/// `*output` receives a handle that nobody needs afterwards; it may be null. Returns 0, or a Win32 error code:
/// ERROR_NO_ASSOCIATION when there is nothing to launch URIs with, ERROR_INVALID_PARAMETER for an empty URI.
DWORD SHLaunchApplicationForURI(BSTR uri, HANDLE* output);
