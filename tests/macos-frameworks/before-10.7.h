// Included before each source that is compiled for Mac OS X before 10.7. The headers of the C
// library here are those of a later system; this removes the flags that 10.6 lacks. No availability
// attribute marks them.
#ifndef QUINTRAL_TESTS_MACOS_FRAMEWORKS_BEFORE_10_7_H
#define QUINTRAL_TESTS_MACOS_FRAMEWORKS_BEFORE_10_7_H

#include <fcntl.h>
#include <sys/socket.h>

#undef F_DUPFD_CLOEXEC
#undef MSG_NOSIGNAL
#undef O_CLOEXEC
#undef O_EXEC
#undef O_SEARCH

#endif
