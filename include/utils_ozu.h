/*
 * libutils_ozu: the utility library of the alarm and home-automation control panel.
 *
 * This header includes every family. The conventions below hold for all of them. A function's own description
 * says where it differs. docs/glossary.md explains the panel's own words: partition, zone, bypass, ...
 *
 * Results. Small integers. 0 is success unless the description says otherwise; a yes/no question
 *   answers 1 or 0. utils_ozu/results.h names the failure codes that several families share; -1 and -2
 *   fail where the description says so.
 *   Lookups of names return constant text and never null ("UNKNOWN" for an unknown code).
 *
 * Null pointers. A null argument is accepted only where the description says what it does.
 *
 * Outputs. An output is written on success only, unless the description says otherwise.
 *
 * Text. Null-terminated bytes. Dotted IPv4 addresses fit into 16 bytes with the terminator. Functions that
 *   write digits without a terminator say so.
 *
 * Times. 32-bit signed seconds since 1970 (UTC), -1 for failure. A 64-bit build gives the same numbers
 *   as the 32-bit panel.
 *
 * Memory. Only allocFileToBuff() returns memory that the caller must free. What a call opens or allocates
 *   is released when it returns. exec_cmd(), popen2() and ozuutils_jpegValidator() describe the exceptions.
 *
 * Logging. Through the platform's log (ozulog.h), in levels of 10000 to 80000. The level of every line a
 *   function writes is part of its description.
 *
 * Blocking. A function returns at once unless its description says how long it blocks. The platform may
 *   block in any call, including the writing of a log line.
 *
 * Threads. The library has no thread, no lock and no timer. A function may run concurrently with any other
 *   function and with itself, unless its description says otherwise.
 *
 * Errors. Nothing throws. Nothing ends the process, except where a description says so.
 */
#ifndef UTILS_OZU_H
#define UTILS_OZU_H

#include <inc_ozu/security_ozu.h>
#include <utils_ozu/command.h>
#include <utils_ozu/coprocessor.h>
#include <utils_ozu/country.h>
#include <utils_ozu/crypto.h>
#include <utils_ozu/database_key.h>
#include <utils_ozu/dates.h>
#include <utils_ozu/files.h>
#include <utils_ozu/host_names.h>
#include <utils_ozu/identity.h>
#include <utils_ozu/interfaces.h>
#include <utils_ozu/jpeg.h>
#include <utils_ozu/kernel_log.h>
#include <utils_ozu/messages.h>
#include <utils_ozu/modem.h>
#include <utils_ozu/names.h>
#include <utils_ozu/partitions.h>
#include <utils_ozu/process.h>
#include <utils_ozu/raw_dns.h>
#include <utils_ozu/reboot.h>
#include <utils_ozu/resolver.h>
#include <utils_ozu/results.h>
#include <utils_ozu/routes.h>
#include <utils_ozu/state.h>
#include <utils_ozu/text.h>
#include <utils_ozu/time_zone.h>
#include <utils_ozu/update_folders.h>

#endif /* UTILS_OZU_H */
