/** \file
 * KestrinBLESDK for programs in C, and for whatever calls C.
 *
 * A platform is a radio with its run loop: the real radio, or a simulated one with virtual readers.
 * A manager works one reader on it. The program turns the run loop, or hosts it in a loop of its
 * own by its descriptor, and everything happens inside those turns.
 *
 * Threads: one thread for a platform and its managers. kestrin_stop and kestrin_post: any thread.
 *
 * Lifetime: what a function creates or returns for keeps, the caller releases with the function
 * that is named there; NULL may always be released. A platform is not released from inside a
 * callback. What a callback is given belongs to the library and ends with the callback, unless it
 * is retained.
 *
 * Versions: a program runs with every later library of the same major version without being
 * compiled again. A struct that the program fills begins with `struct_size`, its own sizeof.
 *
 * Errors: no exception crosses this interface. A function that can fail answers a kestrin_status,
 * or NULL; kestrin_last_error() then says in words what was wrong. A NULL handle is an error, not a
 * crash. */
#ifndef KESTRIN_KESTRIN_H
#define KESTRIN_KESTRIN_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/** Marks what belongs to the library's binary interface. */
#if defined(__GNUC__)
#define KESTRIN_C_EXPORT __attribute__((visibility("default")))
#else
#define KESTRIN_C_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** \addtogroup c
 * @{ */

/** How a call went. */
typedef enum kestrin_status {
  KESTRIN_OK = 0,               /**< it was done */
  KESTRIN_INVALID_ARGUMENT = 1, /**< a NULL handle, a payload that is too long */
  KESTRIN_TOO_SMALL = 2, /**< the caller's memory does not hold the result; its size was told */
  KESTRIN_INSIDE_CALLBACK = 3, /**< this can not be done from inside a callback */
  KESTRIN_NOT_WRITTEN = 4, /**< the reader's transmit characteristic is not known or not writable */
  KESTRIN_NOT_BUILT = 5,   /**< this build of the library has no such radio */
  KESTRIN_FAILED = 6       /**< the system is short of something */
} kestrin_status;

/** A radio with its run loop. Managers share it, so it lives on in them after its release. */
typedef struct kestrin_platform kestrin_platform;
/** Works one reader at a time on a platform. */
typedef struct kestrin_manager kestrin_manager;
/** A reader in range or once in range. */
typedef struct kestrin_reader kestrin_reader;

/** What the last function that failed on this thread has to say; never NULL, empty at first. It
 * holds until the next failure on this thread. */
KESTRIN_C_EXPORT const char* kestrin_last_error(void);

/** The version, as in "1.0.0". */
KESTRIN_C_EXPORT const char* kestrin_version(void);

/* --- platforms */

/** The real radio. `adapter` names one, as in "hci0"; NULL takes the first that is powered. NULL on
 * failure. Without Bluetooth it is made all the same; kestrin_radio_trouble says what is missing.
 */
KESTRIN_C_EXPORT kestrin_platform* kestrin_platform_create(const char* adapter);
/** A simulated radio without any reader in range. In virtual time kestrin_run_for waits for
 * nothing, and the same `seed` with the same calls gives the same events. NULL on failure. */
KESTRIN_C_EXPORT kestrin_platform* kestrin_platform_create_simulated(bool virtual_time,
                                                                     uint64_t seed);
/** Releases what a create function returned. Not from inside a callback. */
KESTRIN_C_EXPORT void kestrin_platform_release(kestrin_platform* platform);

/** Puts a virtual reader in range of a simulated radio; one whose name begins with "KVR-Q62T" is of
 * that family. It answers each command with a frame of type 0x01, the same code and payload. */
KESTRIN_C_EXPORT kestrin_status kestrin_simulated_add_reader(kestrin_platform* platform,
                                                             const char* name);
/** Ends the link of a virtual reader; KESTRIN_INVALID_ARGUMENT when there is none of that name. */
KESTRIN_C_EXPORT kestrin_status kestrin_simulated_lose_link(kestrin_platform* platform,
                                                            const char* name);

/** Gets one line of the log, `length` bytes without a line end. They may be any, since names come
 * from the air, and need not end with a zero. */
typedef void (*kestrin_log_line)(const char* line, size_t length, void* user);
/** Where the library's log lines go: `line` for each. NULL: nowhere, as at first. KESTRIN_OK or
 * KESTRIN_INVALID_ARGUMENT. */
KESTRIN_C_EXPORT kestrin_status kestrin_set_log(kestrin_platform* platform, kestrin_log_line line,
                                                void* user);

/** Why the radio is not powered on and what to do, one line; empty when it is, or not yet known. It
 * holds until the next call with this platform. NULL on failure. */
KESTRIN_C_EXPORT const char* kestrin_radio_trouble(kestrin_platform* platform);

/* --- the run loop */

/** Turns the run loop for so long, or until kestrin_stop. What is no positive number of seconds
 * counts as zero: what is due runs. */
KESTRIN_C_EXPORT kestrin_status kestrin_run_for(kestrin_platform* platform, double seconds);
/** Turns it until kestrin_stop; in virtual time also until nothing is pending. */
KESTRIN_C_EXPORT kestrin_status kestrin_run(kestrin_platform* platform);
/** Does what is due and waits for nothing. */
KESTRIN_C_EXPORT kestrin_status kestrin_run_one_turn(kestrin_platform* platform);
/** Readable whenever a turn has something to do; the platform's own, not to be closed. -1 on
 * failure. */
KESTRIN_C_EXPORT int kestrin_file_descriptor(kestrin_platform* platform);
/** Ends a running kestrin_run or kestrin_run_for, or the next one at once. From any thread. */
KESTRIN_C_EXPORT kestrin_status kestrin_stop(kestrin_platform* platform);
/** Calls `task` in a later turn. From any thread. */
KESTRIN_C_EXPORT kestrin_status kestrin_post(kestrin_platform* platform, void (*task)(void* user),
                                             void* user);
/** The run loop's time in seconds, from a beginning of its own. -1 on failure. */
KESTRIN_C_EXPORT double kestrin_now(kestrin_platform* platform);

/* --- managers */

/** What a manager tells. Each may be NULL: then it is not told. They are called inside turns, and
 * inside the function that brings them about: a scan's beginning and end, and the first `plugged`
 * of a close. */
typedef struct kestrin_callbacks {
  /** sizeof(kestrin_callbacks). Callbacks behind what a smaller, earlier struct has are not there.
   */
  size_t struct_size;
  /** 0: a scan begins. 1: it was stopped. */
  void (*scan_status)(int64_t status, void* user);
  /** A reader in range that the scan has accepted. */
  void (*found)(kestrin_reader* reader, void* user);
  /** Whether the reader is plugged in; closing a link tells false twice. */
  void (*plugged)(bool plugged, void* user);
  /** One whole frame; from a reader whose name begins with "KVR-Q62T" the bytes of one
   * notification, and NULL when it has none. */
  void (*frame)(const uint8_t* bytes, size_t length, void* user);
} kestrin_callbacks;

/** `callbacks` is copied. NULL on failure, also for a `struct_size` that no version of the library
 * up to this one has. Release: kestrin_manager_release, which closes the link. */
KESTRIN_C_EXPORT kestrin_manager* kestrin_manager_create(kestrin_platform* platform,
                                                         const kestrin_callbacks* callbacks,
                                                         void* user);
/** Closes the link and releases the manager, whose callbacks are called no more. */
KESTRIN_C_EXPORT void kestrin_manager_release(kestrin_manager* manager);

/** Drops the link and scans; readers are told with `found`. */
KESTRIN_C_EXPORT kestrin_status kestrin_scan(kestrin_manager* manager);
/** Stops the scan, which `scan_status` tells with 1. */
KESTRIN_C_EXPORT kestrin_status kestrin_stop_scan(kestrin_manager* manager);
/** Connects, however long that takes; `plugged` tells when the reader can be used. */
KESTRIN_C_EXPORT kestrin_status kestrin_connect(kestrin_manager* manager, kestrin_reader* reader);
/** The reader that was accepted last or connected to; NULL when there is none. Release:
 * kestrin_reader_release. */
KESTRIN_C_EXPORT kestrin_reader* kestrin_current_reader(kestrin_manager* manager);
/** Whether there is a link; false also for NULL. */
KESTRIN_C_EXPORT bool kestrin_is_open(const kestrin_manager* manager);
/** Drops the link or the attempt and stops the scan. */
KESTRIN_C_EXPORT kestrin_status kestrin_close(kestrin_manager* manager);
/** Sends one whole frame, 20 bytes at a time with a pause of 0.05 s after each full slice.
 * KESTRIN_OK: the last slice was handed to the radio. */
KESTRIN_C_EXPORT kestrin_status kestrin_send(kestrin_manager* manager, const uint8_t* frame,
                                             size_t length);

/* --- readers */

/** Makes a reader that a callback was given outlive it. Answers it; NULL for NULL. Release:
 * kestrin_reader_release. */
KESTRIN_C_EXPORT kestrin_reader* kestrin_reader_retain(kestrin_reader* reader);
/** Releases a reader that was retained or returned. */
KESTRIN_C_EXPORT void kestrin_reader_release(kestrin_reader* reader);
/** Its name; empty when it has none. It holds until the next call with this reader. NULL on
 * failure.
 */
KESTRIN_C_EXPORT const char* kestrin_reader_name(kestrin_reader* reader);
/** What tells it from others; as the name. */
KESTRIN_C_EXPORT const char* kestrin_reader_identifier(kestrin_reader* reader);

/* --- frames */

/** Writes a whole frame, CRC included, of `payload_length` + 8 bytes to `frame` and that number to
 * `length`. KESTRIN_TOO_SMALL when `capacity` is less: `length` then says what is needed, and
 * nothing was written. A payload has at most 65,535 bytes. */
KESTRIN_C_EXPORT kestrin_status kestrin_build_frame(uint8_t type, uint8_t code,
                                                    const uint8_t* payload, size_t payload_length,
                                                    uint8_t* frame, size_t capacity,
                                                    size_t* length);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
