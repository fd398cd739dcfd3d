/** \file
 * KestrinBLESDK for programs in C, and for whatever calls C.
 *
 * A platform is a radio with its run loop: the real radio, or a simulated one with virtual readers.
 * A reader is found on it, connected to, and brought back after every loss, for as long as the
 * program keeps it; a manager is the interface below. The program turns the run loop, or hosts it
 * in a loop of its own by its descriptor, and everything happens inside those turns.
 *
 * Threads: one thread for a platform, its readers and its managers. kestrin_stop and kestrin_post:
 * any thread.
 *
 * Lifetime: what a function creates or returns for keeps, the caller releases with the function
 * that is named there; NULL may always be released. A platform is not released from inside a
 * callback. What a callback is given belongs to the library and ends with the callback, unless it
 * is retained.
 *
 * Versions: a program runs with every later library of the same major version without being
 * compiled again. A struct that the program fills begins with `struct_size`, its own sizeof.
 *
 * Errors: no exception crosses this interface. A function that can fail returns a kestrin_status,
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
  KESTRIN_INSIDE_CALLBACK = 3, /**< this cannot be done from inside a callback */
  KESTRIN_NOT_WRITTEN = 4, /**< the reader's transmit characteristic is not known or not writable */
  KESTRIN_NOT_BUILT = 5,   /**< this build of the library has no such radio */
  KESTRIN_FAILED = 6,      /**< the system is short of something */
  KESTRIN_NO_FRAME = 7     /**< the bytes are not one whole frame */
} kestrin_status;

/** A radio with its run loop. Managers share it, so it lives on in them after its release. */
typedef struct kestrin_platform kestrin_platform;
/** Works one reader at a time on a platform. */
typedef struct kestrin_manager kestrin_manager;
/** A device in range or once in range, as a manager finds it. */
typedef struct kestrin_peripheral kestrin_peripheral;
/** One reader, held. */
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

/** Records what readers and managers that are created from now on do: everything that is asked of
 * the radio, the devices and the run loop, and what comes back. The file has the form that
 * `kestrin timeline` draws. KESTRIN_FAILED when it cannot be written, KESTRIN_INVALID_ARGUMENT when
 * this platform records already. */
KESTRIN_C_EXPORT kestrin_status kestrin_record(kestrin_platform* platform, const char* path);
/** Whether everything was written so far; false also without a recording, and for NULL. */
KESTRIN_C_EXPORT bool kestrin_recording_is_whole(const kestrin_platform* platform);

/* --- the run loop */

/** Turns the run loop for so long, or until kestrin_stop. What is not a positive number of seconds
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

/* --- frames */

/** Writes a whole frame, CRC included, of `payload_length` + 8 bytes to `frame` and that number to
 * `length`. KESTRIN_TOO_SMALL when `capacity` is less: `length` then says what is needed, and
 * nothing was written. A payload has at most 65,535 bytes. */
KESTRIN_C_EXPORT kestrin_status kestrin_build_frame(uint8_t type, uint8_t code,
                                                    const uint8_t* payload, size_t payload_length,
                                                    uint8_t* frame, size_t capacity,
                                                    size_t* length);

/** One whole frame, taken apart. What it points to are the bytes that it was taken from. */
typedef struct kestrin_frame {
  size_t struct_size;     /**< sizeof(kestrin_frame) */
  uint8_t type;           /**< the message type; commands have 0x00 */
  uint8_t code;           /**< the command's or the reply's code */
  const uint8_t* payload; /**< the payload */
  size_t payload_length;  /**< its length, which may be 0 */
  const uint8_t* bytes;   /**< the whole frame, from the preamble through the CRC low byte */
  size_t length;          /**< the length of the whole */
} kestrin_frame;

/** The fields of a frame, in their order. */
typedef enum kestrin_frame_field {
  KESTRIN_FIELD_PREAMBLE = 0,       /**< 0xBB */
  KESTRIN_FIELD_TYPE = 1,           /**< the message type */
  KESTRIN_FIELD_CODE = 2,           /**< the code */
  KESTRIN_FIELD_PAYLOAD_LENGTH = 3, /**< two bytes, high byte first */
  KESTRIN_FIELD_PAYLOAD = 4,        /**< as many bytes as the payload length says */
  KESTRIN_FIELD_END_MARK = 5,       /**< 0x7E */
  KESTRIN_FIELD_CRC = 6             /**< two bytes, high byte first */
} kestrin_frame_field;

/** Why bytes are not one whole frame; kestrin_last_error has it in words. */
typedef struct kestrin_frame_error {
  size_t struct_size; /**< sizeof(kestrin_frame_error) */
  /** The first field that is wrong, or that the bytes end in front of or within. */
  kestrin_frame_field field;
  /** The place of the first byte of a wrong field, or of the first byte that is not there. */
  size_t offset;
  /** The bytes are right as far as they go; more of them may make a frame. */
  bool incomplete;
} kestrin_frame_error;

/** Takes one whole frame apart: from its preamble through its CRC, and nothing behind. Both structs
 * begin with their size, set by the caller; `error` may be NULL. KESTRIN_NO_FRAME when the bytes
 * are anything else. */
KESTRIN_C_EXPORT kestrin_status kestrin_frame_parse(const uint8_t* bytes, size_t length,
                                                    kestrin_frame* frame,
                                                    kestrin_frame_error* error);

/* --- readers */

/** Where a reader stands. */
typedef enum kestrin_phase {
  KESTRIN_RADIO_OFF = 0,  /**< the radio is off, gone, or may not be used; waited for */
  KESTRIN_SEARCHING = 1,  /**< the reader that is meant is looked for; a reader begins here */
  KESTRIN_CONNECTING = 2, /**< it is known and its link is asked for */
  KESTRIN_LINKING_UP = 3, /**< there is a link, which cannot be used yet; frames may come already */
  KESTRIN_PLUGGED_IN = 4, /**< the link can be used */
  KESTRIN_LOST = 5,       /**< the link has ended; the next attempt comes after a pause */
  KESTRIN_AWAY = 6,       /**< without a link until kestrin_reader_come_back */
  KESTRIN_CLOSED = 7      /**< the end: nothing is tried any more */
} kestrin_phase;

/** What went wrong with a reader. */
typedef enum kestrin_trouble {
  KESTRIN_NO_TROUBLE = 0,      /**< nothing */
  KESTRIN_NOT_FOUND = 12,      /**< it did not come into range in time */
  KESTRIN_NOT_PLUGGED_IN = 13, /**< it was found and the link did not come up in time */
  KESTRIN_UNPLUGGED = 14,      /**< the link is down */
  KESTRIN_NOT_WRITABLE = 15,   /**< it has no characteristic that can be written */
  KESTRIN_NO_ANSWER = 16,      /**< nothing that was waited for came in time */
  KESTRIN_NOT_A_FRAME = 18,    /**< what is to be sent is not one whole frame */
  KESTRIN_QUEUE_FULL = 19,     /**< too many frames wait to be sent */
  KESTRIN_AMBIGUOUS = 20,      /**< several readers are meant */
  KESTRIN_HELD = 21,           /**< another reader of this program holds the device */
  KESTRIN_RADIO_IS_OFF = 22,   /**< the radio is switched off or resetting */
  KESTRIN_RADIO_UNUSABLE = 23  /**< there is no radio, or it may not be used */
} kestrin_trouble;

/** What a reader is to hold, and how. Zero in a member is what it says there. */
typedef struct kestrin_reader_options {
  /** sizeof(kestrin_reader_options). Members behind what a smaller, earlier struct has are zero. */
  size_t struct_size;
  /** Its identifier, its whole name, or a part of its name, in this order; NULL or empty: any. */
  const char* reader;
  /** Of several that are meant alike the one that is seen first is taken. False: none is, and
   * `trouble` is called with KESTRIN_AMBIGUOUS. */
  bool take_first;
  /** Seconds that the search may take until `trouble` is called with KESTRIN_NOT_FOUND. Zero: 30.
   * Less: as long as it takes. */
  double find_limit;
  /** The same from a connection request until it is plugged in, with KESTRIN_NOT_PLUGGED_IN. */
  double plug_in_limit;
  /** The first loss, and the first limit that passes, closes it. False: it is connected to again
   * after every loss, after pauses that grow up to a minute, without end. */
  bool give_up;
  /** How many frames may wait to be sent. Zero: 64. */
  size_t most_waiting_frames;
} kestrin_reader_options;

/** What a reader calls. Each may be NULL. They are called inside turns of the run loop, never from
 * inside a function of this interface, and may release the reader. */
typedef struct kestrin_reader_handlers {
  /** sizeof(kestrin_reader_handlers). Handlers behind what a smaller, earlier struct has are not
   * there. */
  size_t struct_size;
  /** The phase has changed. Not called for kestrin_reader_close. */
  void (*phase)(kestrin_reader* reader, kestrin_phase phase, void* user);
  /** One whole frame that no kestrin_reader_exchange waits for; valid during the call. */
  void (*frame)(kestrin_reader* reader, const kestrin_frame* frame, void* user);
  /** From a reader whose name begins with "KVR-Q62T": the bytes of one notification. */
  void (*value)(kestrin_reader* reader, const uint8_t* bytes, size_t length, void* user);
  /** Something that a person should know, in one line. */
  void (*trouble)(kestrin_reader* reader, kestrin_trouble trouble, const char* text, void* user);
  /** A reader was seen that was not seen before. */
  void (*seen)(kestrin_reader* reader, void* user);
} kestrin_reader_handlers;

/** A reader, which begins to search at once. `options` may be NULL; both structs are copied. NULL
 * on failure. Release: kestrin_reader_release, which closes the link. */
KESTRIN_C_EXPORT kestrin_reader* kestrin_reader_create(kestrin_platform* platform,
                                                       const kestrin_reader_options* options,
                                                       const kestrin_reader_handlers* handlers,
                                                       void* user);
/** Closes the link and releases the reader, which calls nobody any more. */
KESTRIN_C_EXPORT void kestrin_reader_release(kestrin_reader* reader);
/** Where it stands; KESTRIN_CLOSED for NULL. */
KESTRIN_C_EXPORT kestrin_phase kestrin_reader_phase(const kestrin_reader* reader);
/** The name by which it was found, empty before. What is returned before it was found holds until
 * then, what is returned afterwards as long as the reader. NULL on failure. */
KESTRIN_C_EXPORT const char* kestrin_reader_name(const kestrin_reader* reader);
/** What tells it from every other one of its radio; as the name. */
KESTRIN_C_EXPORT const char* kestrin_reader_identifier(const kestrin_reader* reader);
/** Whether there is a link or an attempt; false also for NULL. */
KESTRIN_C_EXPORT bool kestrin_reader_has_link(const kestrin_reader* reader);

/** Calls `each` for every reader that the search has seen, or only for those that are meant and
 * nobody else holds. Both texts are valid during the call. */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_each_seen(
    kestrin_reader* reader, bool only_meant,
    void (*each)(const char* name, const char* identifier, void* user), void* user);
/** Takes one of the seen readers in the next turn. KESTRIN_INVALID_ARGUMENT when none of that
 * identifier was seen, another reader of the program holds it, or one is taken already. */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_choose(kestrin_reader* reader,
                                                      const char* identifier);

/** How a frame was sent: KESTRIN_NO_TROUBLE when its last slice was handed to the radio. `text`
 * says what went wrong, and is empty when nothing did. */
typedef void (*kestrin_sent)(kestrin_trouble trouble, const char* text, void* user);
/** The answer to a command, valid during the call; NULL when there is none. */
typedef void (*kestrin_answered)(const kestrin_frame* answer, kestrin_trouble trouble,
                                 const char* text, void* user);

/** Sends a frame, CRC included, without blocking: 20 bytes at a time with a pause of 0.05 s after
 * each full slice, one frame after the other. `done`, which may be NULL, is called in a later turn.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_send(kestrin_reader* reader, const uint8_t* frame,
                                                    size_t length, kestrin_sent done, void* user);
/** Sends a whole frame; `done` is called in a later turn, with the next frame of the same code that
 * comes within `limit` seconds after the last slice. `exchange`, which may be NULL, gets a number
 * for kestrin_reader_forget. */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_exchange(kestrin_reader* reader,
                                                        const uint8_t* frame, size_t length,
                                                        double limit, kestrin_answered done,
                                                        void* user, uint64_t* exchange);
/** Waits for an answer no longer: its `done` is not called. */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_forget(kestrin_reader* reader, uint64_t exchange);

/** Gives the link up until kestrin_reader_come_back, in the next turn. Limits do not run meanwhile.
 */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_leave(kestrin_reader* reader);
/** Searches or connects again, in the next turn. */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_come_back(kestrin_reader* reader);
/** Ends everything. `done`, which may be NULL, is called once the link is down. */
KESTRIN_C_EXPORT kestrin_status kestrin_reader_close(kestrin_reader* reader,
                                                     void (*done)(void* user), void* user);

/* --- managers */

/** What a manager calls. Each may be NULL. They are called inside turns, and
 * inside the function that brings them about: a scan's beginning and end, and the first `plugged`
 * of a close. */
typedef struct kestrin_callbacks {
  /** sizeof(kestrin_callbacks). Callbacks behind what a smaller, earlier struct has are not there.
   */
  size_t struct_size;
  /** 0: a scan begins. 1: it was stopped. */
  void (*scan_status)(int64_t status, void* user);
  /** A reader in range that the scan has accepted. */
  void (*found)(kestrin_peripheral* reader, void* user);
  /** Whether the reader is plugged in; closing a link reports false twice. */
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
/** Stops the scan, for which `scan_status` is called with 1. */
KESTRIN_C_EXPORT kestrin_status kestrin_stop_scan(kestrin_manager* manager);
/** Connects, however long that takes; `plugged` reports when the reader can be used. */
KESTRIN_C_EXPORT kestrin_status kestrin_connect(kestrin_manager* manager,
                                                kestrin_peripheral* reader);
/** The reader that was accepted last or connected to; NULL when there is none. Release:
 * kestrin_peripheral_release. */
KESTRIN_C_EXPORT kestrin_peripheral* kestrin_current_peripheral(kestrin_manager* manager);
/** Whether there is a link; false also for NULL. */
KESTRIN_C_EXPORT bool kestrin_is_open(const kestrin_manager* manager);
/** Drops the link or the attempt and stops the scan. */
KESTRIN_C_EXPORT kestrin_status kestrin_close(kestrin_manager* manager);
/** Sends one whole frame, 20 bytes at a time with a pause of 0.05 s after each full slice.
 * KESTRIN_OK: the last slice was handed to the radio. */
KESTRIN_C_EXPORT kestrin_status kestrin_send(kestrin_manager* manager, const uint8_t* frame,
                                             size_t length);

/* --- peripherals */

/** Makes a peripheral that a callback was given outlive it. Returns it; NULL for NULL. Release:
 * kestrin_peripheral_release. */
KESTRIN_C_EXPORT kestrin_peripheral* kestrin_peripheral_retain(kestrin_peripheral* reader);
/** Releases a peripheral that was retained or returned. */
KESTRIN_C_EXPORT void kestrin_peripheral_release(kestrin_peripheral* reader);
/** Its name; empty when it has none. It holds until the next call with this reader. NULL on
 * failure.
 */
KESTRIN_C_EXPORT const char* kestrin_peripheral_name(kestrin_peripheral* reader);
/** What tells it from others; as the name. */
KESTRIN_C_EXPORT const char* kestrin_peripheral_identifier(kestrin_peripheral* reader);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
