// Part of the builds with the address sanitizer alone, which call this in SQLDriverConnect's place.
#include <sanitizer/lsan_interface.h>
#include <sql.h>
#include <sqlext.h>

// The linker's names.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" SQLRETURN __real_SQLDriverConnect(SQLHDBC, SQLHWND, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                                             SQLSMALLINT*, SQLUSMALLINT);

/// The driver's look at its data source is cached in a library that the driver unloads when it disconnects:
/// leaks, none of them ours. Left out here they need no suppression, which would have to find this function
/// on the stack. For that every allocation's stack would have to be followed through libraries, and the leak
/// check would look hundreds of them up in a library that is gone: both together made the tests ten times as
/// slow.
extern "C" SQLRETURN __wrap_SQLDriverConnect(SQLHDBC connection, SQLHWND window, SQLCHAR* in,
                                             SQLSMALLINT inSize, SQLCHAR* out, SQLSMALLINT outCapacity,
                                             SQLSMALLINT* outSize, SQLUSMALLINT completion) {
    const __lsan::ScopedDisabler disabler;
    return __real_SQLDriverConnect(connection, window, in, inSize, out, outCapacity, outSize, completion);
}
// NOLINTEND(bugprone-reserved-identifier)
