#include "base/sqlite.h"

namespace base::sqlite {

namespace {

const char* advice_on(int error) {
    switch (error & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return "; another program holds it: end what does";
        case SQLITE_FULL:
        case SQLITE_IOERR:
            return "; make room on its disk, or look what is wrong with that";
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return "; put back a copy of it, or move it away to begin with an empty one";
        case SQLITE_READONLY:
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return "; it must be a file of the user who runs the service, who may write it and its folder";
        default:
            return "";
    }
}

}  // namespace

std::string failure_of(sqlite3* connection) {
    return std::string(sqlite3_errmsg(connection)) + advice_on(sqlite3_errcode(connection));
}

}  // namespace base::sqlite
