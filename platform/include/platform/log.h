/* Log of the SDK. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/** Severities, as printed: the lower, the graver. Lines of levels 4 and 5 show payloads. A failure
 * may quote a request that can't be read: below level 4 a port hides the values of the members
 * passwd, token and local_key. */
enum {
    LOG_LEVEL_FAILURE = 0,       /**< something failed */
    LOG_LEVEL_WARNING = 1,       /**< something unexpected that was dealt with */
    LOG_LEVEL_FAULTY_CLIENT = 2, /**< a client connection was found faulty */
    LOG_LEVEL_TRACE = 4,         /**< progress and state */
    LOG_LEVEL_DETAIL = 5         /**< chatter of every tick and socket */
};

/** Module number of the LAN agent in every line it writes. */
enum { LOG_MODULE_AGENT = 0 };

/**
 * Writes one line. May be called on any thread, also inside callbacks and with a contract mutex
 * held; lines of several threads never mix. The port decides by level what it keeps. Control
 * characters at the end of the message are dropped; those inside it, and terminal escape sequences,
 * are made visible by the port. It never waits for a reader of the log.
 *
 * A client can provoke the same failure again and again, so a port leaves out lines of levels 0 to
 * 3 that one place in the source writes too often, and then logs how many there were. The Linux
 * port lets a place write 20 lines or 16 KiB in a second, whichever comes first, and says how many
 * it left out once that second is over.
 *
 * A message may be as long as a request; a port may cut it (the Linux port at 64 KiB).
 *
 * errno and the socket error code of the calling thread are left as they were.
 *
 * @param module    number of the writing module
 * @param level     0 (failure) to 5 (detail)
 * @param file      source file name without directories; must outlive the call only
 * @param line      source line
 * @param function  name of the writing function
 * @param format    printf format of the message
 */
void PrintLog(int module, int level, const char *file, int line, const char *function,
              const char *format, ...) __attribute__((format(printf, 6, 7)));

#ifdef __cplusplus
}
#endif
