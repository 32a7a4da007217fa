/*
 * Results that several families share. A function's own description says which of them it returns, and lists
 * the ones that only it returns.
 */
#ifndef UTILS_OZU_RESULTS_H
#define UTILS_OZU_RESULTS_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/** Shared results, permanent. */
typedef enum OzuResult {
    OZU_RESULT_OK = 0,           /**< success */
    OZU_RESULT_MISSING = 2,      /**< null argument, or the panel's shared state is missing */
    OZU_RESULT_INVALID = 4,      /**< translation or validation failed */
    OZU_RESULT_NOT_RESOLVED = 5, /**< host name not resolved */
    OZU_RESULT_NO_SOCKET = 7,    /**< socket not created */
    OZU_RESULT_IO_FAILED = 8,    /**< ioctl or write failed */
    OZU_RESULT_NO_FILE = 70      /**< file missing */
} OzuResult;

OZU_END_DECLS

#endif /* UTILS_OZU_RESULTS_H */
