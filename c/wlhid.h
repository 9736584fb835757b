/*
 * SPDX-License-Identifier: Apache-2.0
 */

/*
 * The input of HID devices by way of the HID event router, for C and for every language that can
 * call C.
 *
 *   wlhid_input_options options = {.device = id};
 *   wlhid_input* input;
 *   if (wlhid_input_open(&options, &input) != WLHID_OK) die(wlhid_last_error());
 *   struct pollfd poll_fd = {wlhid_input_fd(input), POLLIN, 0};
 *   while (poll(&poll_fd, 1, -1) > 0) {
 *     wlhid_event event;
 *     while (wlhid_input_next(input, &event) == WLHID_OK) handle(&event);
 *   }
 *
 * An input goes on by itself after a router's death, an update or an unplugged device, and says in
 * events of the kind WLHID_EVENT_STATUS what it is doing.
 *
 * Threading: any thread; one thread at a time for each handle. Nothing is called back but the
 * consent function. Only wlhid_devices_list, wlhid_report_descriptor, wlhid_router_install and
 * wlhid_router_remove wait.
 *
 * Ownership: what an open function gives is the caller's, who closes it. What events, lists and
 * strings point to is the library's: of an event until the next call on its handle, of a list until
 * it is freed, of wlhid_last_error until the next call on the same thread.
 *
 * Errors: a code; wlhid_last_error has the words of the last call on this thread that failed.
 *
 * Order: events of one handle come in order. A handle whose events are not taken holds up its own
 * device and nothing else; what is lost then is lost in the router, which counts it.
 *
 * Stability: structures only grow, into their reserved fields; codes keep their numbers.
 */
#ifndef WLHID_H
#define WLHID_H

#include <stddef.h>
#include <stdint.h>

#ifdef __GNUC__
#pragma GCC visibility push(default)
#endif
#ifdef __cplusplus
extern "C" {
#endif

#define WLHID_ABI_VERSION 1

typedef enum wlhid_code {
  WLHID_OK = 0,
  WLHID_AGAIN = 1,        /* nothing waits; poll the descriptor */
  WLHID_BAD_ARGUMENT = 2, /* a mistake in the program */
  WLHID_NO_MEMORY = 3,
  WLHID_NO_ROUTER = 4,     /* none is installed, or none serves applications here */
  WLHID_NO_DEVICE = 5,     /* it is not there, or no longer */
  WLHID_NOT_PERMITTED = 6, /* somebody or some rule said no */
  WLHID_CANCELED = 7,      /* the person who was asked did not answer */
  WLHID_NOBODY_TO_ASK = 8, /* consent is needed, and there is no way to ask for it */
  WLHID_BUSY = 9,          /* too many requests, or another program has the device */
  WLHID_TIMED_OUT = 10,
  WLHID_ENDED = 11, /* a recording is over, or somebody ended the session */
  WLHID_FAILED = 12 /* anything else; the words say what */
} wlhid_code;

/* What a code means in general, for people. */
const char* wlhid_code_text(int code);
/* Why the last failed call on this thread failed: what happened and what to do. Never null. */
const char* wlhid_last_error(void);
/* Of the library: "1.1" */
const char* wlhid_version(void);
/* WLHID_ABI_VERSION of the library that is loaded. */
uint32_t wlhid_abi_version(void);
/* "X", "Button 3", "Left Shift", or "ff00/0021". Writes at most `size` bytes with the final zero,
   and returns how many the whole name needs. */
size_t wlhid_usage_name(uint32_t usage_page, uint32_t usage, char* buffer, size_t size);

/* ---- The router ---- */

typedef enum wlhid_presence_state {
  WLHID_PRESENT = 0, /* installed, with the version that this application brings */
  WLHID_NOT_INSTALLED = 1,
  WLHID_OTHER_VERSION = 2,
  WLHID_INSTALLED_UNKNOWN = 3, /* there is one, but it cannot be examined */
  WLHID_OWN_COPY_UNKNOWN = 4   /* this application's own copy is missing or cannot be examined */
} wlhid_presence_state;

typedef struct wlhid_presence {
  uint32_t state; /* wlhid_presence_state */
  uint32_t reserved;
  const char* installed_version; /* "" if unknown */
  const char* own_version;       /* "" if unknown */
  const char* text;              /* one sentence: what is there, and what to do */
} wlhid_presence;

/* The strings are valid until the next call on this thread. */
int wlhid_router_presence(wlhid_presence* returned);
/* Where the application's Contents/ is, for programs that bring no router or that an interpreter
   runs; that of the packages is in /usr/lib/wlhid. To be called first. */
int wlhid_router_use_bundle(const char* directory);
/* Ask for consent, with the application's own words (null: the system's), and wait. */
int wlhid_router_install(const char* prompt);
int wlhid_router_remove(const char* prompt);

/* WLHID_OK: yes. WLHID_NOT_PERMITTED: no. WLHID_CANCELED, WLHID_NOBODY_TO_ASK: no answer. Called on
   the thread that installs or removes, on a user's own root only. */
typedef int (*wlhid_consent_function)(const char* prompt, void* context);
/* How this application asks, in place of a question in the terminal; null brings that back. */
int wlhid_router_set_consent(wlhid_consent_function function, void* context);

/* ---- Devices ---- */

typedef struct wlhid_usage {
  uint32_t page;
  uint32_t id;
} wlhid_usage;

typedef enum wlhid_permission {
  WLHID_PERMISSION_YES = 0,
  WLHID_PERMISSION_PARTLY = 1,        /* the harmless reports of a sensitive device */
  WLHID_PERMISSION_ADMINISTRATOR = 2, /* one has to agree each time */
  WLHID_PERMISSION_NO = 3,
  WLHID_PERMISSION_UNKNOWN = 4
} wlhid_permission;

typedef enum wlhid_class {
  WLHID_CLASS_NONE = 0, /* on a user's own root there are none */
  WLHID_CLASS_ORDINARY = 1,
  WLHID_CLASS_SENSITIVE = 2 /* can carry what is typed */
} wlhid_class;

typedef struct wlhid_device {
  uint64_t id;  /* registry entry ID */
  uint32_t bus; /* 3 USB, 5 Bluetooth, 0x18 I2C */
  uint32_t vendor;
  uint32_t product;
  int32_t interface_number; /* -1 if unknown */
  uint32_t device_class;    /* wlhid_class */
  uint32_t permission;      /* wlhid_permission */
  const char* name;
  const char* source;
  const char* path;
  const char* serial;
  const char* reason;      /* the rule that decided the class */
  const char* explanation; /* of the permission */
  const wlhid_usage* collections;
  size_t collection_count;
  void* reserved[4];
} wlhid_device;

/* Which fields of a criterion count. */
enum {
  WLHID_MATCH_ID = 1,
  WLHID_MATCH_VENDOR = 2,
  WLHID_MATCH_PRODUCT = 4,
  WLHID_MATCH_USAGE_PAGE = 8,
  WLHID_MATCH_USAGE = 16
};

typedef struct wlhid_criterion {
  uint32_t fields; /* WLHID_MATCH_… together */
  uint32_t vendor;
  uint32_t product;
  uint32_t usage_page; /* of one of the device's collections */
  uint32_t usage;
  uint32_t reserved;
  uint64_t id;
} wlhid_criterion;

/* A device counts if it meets one criterion of `matching` (none: any device) and none of
 * `excluding`. */
typedef struct wlhid_filter {
  const wlhid_criterion* matching;
  size_t matching_count;
  const wlhid_criterion* excluding;
  size_t excluding_count;
} wlhid_filter;

typedef struct wlhid_devices wlhid_devices;

/* `filter` may be null. `timeout_ms` -1: ten seconds. */
int wlhid_devices_list(const wlhid_filter* filter, int timeout_ms, wlhid_devices** returned);
size_t wlhid_devices_count(const wlhid_devices* devices);
/* Null if there is none with that index. */
const wlhid_device* wlhid_devices_at(const wlhid_devices* devices, size_t index);
void wlhid_devices_free(wlhid_devices* devices);

/* Writes at most `size` bytes, and the whole length to `returned_size`. */
int wlhid_report_descriptor(uint64_t id, uint8_t* buffer, size_t size, size_t* returned_size);

typedef enum wlhid_watch_kind {
  WLHID_WATCH_LISTED = 1, /* the devices that were there at first have been told, as arrivals */
  WLHID_WATCH_ARRIVED = 2,
  WLHID_WATCH_CHANGED = 3,
  WLHID_WATCH_DEPARTED = 4,
  WLHID_WATCH_UNAVAILABLE = 5 /* the router cannot be asked at the moment */
} wlhid_watch_kind;

typedef struct wlhid_watch_event {
  uint32_t kind; /* wlhid_watch_kind */
  uint32_t reserved;
  const wlhid_device* device; /* null if it is about none */
  const char* text;           /* why the router cannot be asked; else "" */
} wlhid_watch_event;

typedef struct wlhid_watch wlhid_watch;

int wlhid_watch_open(const wlhid_filter* filter, wlhid_watch** returned);
/* Readable while an event waits. Not to be read or closed. */
int wlhid_watch_fd(const wlhid_watch* watch);
int wlhid_watch_next(wlhid_watch* watch, wlhid_watch_event* returned);
void wlhid_watch_close(wlhid_watch* watch);

/* ---- Input ---- */

typedef struct wlhid_input_options {
  uint64_t device; /* registry entry ID; 0: the first that the filter admits */
  wlhid_filter filter;
  const wlhid_usage* usages; /* only their values; none: all. Reports come whole */
  size_t usage_count;
  uint32_t is_exclusive; /* nobody else is to get the device's input meanwhile */
  uint32_t reserved[5];
} wlhid_input_options;

typedef enum wlhid_state {
  WLHID_CONNECTING = 0,
  WLHID_WAITING_FOR_ROUTER = 1,
  WLHID_WAITING_FOR_DEVICE = 2,
  WLHID_ROUTING = 3,
  WLHID_RECONNECTING = 4,
  WLHID_NOT_ALLOWED = 5,
  WLHID_STATE_ENDED = 6,  /* for good */
  WLHID_STATE_STOPPED = 7 /* for good: the request itself is wrong */
} wlhid_state;

typedef enum wlhid_event_kind {
  WLHID_EVENT_STATUS = 1,
  WLHID_EVENT_REPORT = 2,
  WLHID_EVENT_VALUES = 3 /* of the report before */
} wlhid_event_kind;

typedef struct wlhid_value {
  uint32_t usage_page;
  uint32_t usage;
  uint32_t report_id;
  uint32_t reserved;
  uint64_t cookie; /* identifies the element within the device */
  int64_t value;
  const uint8_t* bytes; /* the field as it is in the report */
  size_t size;
} wlhid_value;

typedef struct wlhid_event {
  uint32_t kind; /* wlhid_event_kind */
  /* Of a report: */
  uint32_t report_id;
  uint64_t time_ns; /* CLOCK_MONOTONIC, when it arrived here */
  const uint8_t* bytes;
  size_t size;
  /* Of values: */
  const wlhid_value* values;
  size_t value_count;
  /* Of a status: */
  uint32_t state;   /* wlhid_state */
  uint32_t code;    /* wlhid_code of the router's error, or WLHID_OK */
  int64_t since;    /* seconds since 1970-01-01 00:00:00 UTC */
  const char* text; /* for people; "" if it is no status */
  uint64_t device;  /* that was found; 0 if none */
  void* reserved[4];
} wlhid_event;

typedef struct wlhid_input wlhid_input;

int wlhid_input_open(const wlhid_input_options* options, wlhid_input** returned);
/* Readable while an event waits. Not to be read or closed. */
int wlhid_input_fd(const wlhid_input* input);
int wlhid_input_next(wlhid_input* input, wlhid_event* returned);
/* Tries again at once, also where it would wait or has given up; a person may be asked. */
int wlhid_input_retry(wlhid_input* input);
/* Frees the device at once. Null does nothing; the same goes for the other two. */
void wlhid_input_close(wlhid_input* input);

#ifdef __cplusplus
}
#endif
#ifdef __GNUC__
#pragma GCC visibility pop
#endif

#endif
