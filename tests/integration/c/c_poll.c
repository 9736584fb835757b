/*
 * SPDX-License-Identifier: Apache-2.0
 */

/*
 * An application in C: lists the devices, watches them, and prints the first so many events of a device, by poll alone.
 *
 *   c_poll list | install | presence | misuse
 *   c_poll watch KIND: until there is an event of that kind
 *   c_poll route ID COUNT [PAGE USAGE]: only the values of that usage
 *   c_poll retry ID: input that has ended begins again
 *   c_poll exclusive ID: there is no second one beside it
 */
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "wlhid.h"

static int failed(const char* what, int code) {
  printf("%s failed: %d %s\n", what, code, wlhid_last_error());
  return 1;
}

static int waits(int descriptor) {
  struct pollfd poll_fd;
  poll_fd.fd = descriptor;
  poll_fd.events = POLLIN;
  poll_fd.revents = 0;
  return poll(&poll_fd, 1, 60000) == 1;
}

static void print_device(const char* what, const wlhid_device* device) {
  char usage[64] = "nothing";
  if (device->collection_count > 0)
    wlhid_usage_name(device->collections[0].page, device->collections[0].id, usage, sizeof usage);
  printf("%s 0x%" PRIx64 " %s: %s, %04x:%04x, %s\n", what, device->id, device->name, usage, device->vendor,
         device->product, device->explanation);
}

static int list(void) {
  wlhid_criterion mouse;
  wlhid_filter filter;
  wlhid_devices* devices = NULL;
  size_t i;
  int code;
  memset(&mouse, 0, sizeof mouse);
  memset(&filter, 0, sizeof filter);
  mouse.fields = WLHID_MATCH_USAGE_PAGE | WLHID_MATCH_USAGE;
  mouse.usage_page = 1;
  mouse.usage = 2;
  filter.matching = &mouse;
  filter.matching_count = 1;
  code = wlhid_devices_list(&filter, -1, &devices);
  if (code != WLHID_OK) return failed("list", code);
  for (i = 0; i < wlhid_devices_count(devices); ++i) {
    const wlhid_device* device = wlhid_devices_at(devices, i);
    uint8_t descriptor[4];
    size_t size = 0;
    print_device("device", device);
    code = wlhid_report_descriptor(device->id, descriptor, sizeof descriptor, &size);
    if (code != WLHID_OK) return failed("descriptor", code);
    printf("descriptor of %zu bytes: %02x %02x\n", size, descriptor[0], descriptor[1]);
  }
  wlhid_devices_free(devices);
  return 0;
}

static int watch(const char* last) {
  static const char* const kinds[] = {"", "listed", "arrived", "changed", "departed", "unavailable"};
  const char* kind = "";
  wlhid_watch* watch = NULL;
  int code = wlhid_watch_open(NULL, &watch);
  if (code != WLHID_OK) return failed("watch", code);
  while (strcmp(kind, last) != 0 && waits(wlhid_watch_fd(watch))) {
    wlhid_watch_event event;
    while (strcmp(kind, last) != 0 && wlhid_watch_next(watch, &event) == WLHID_OK) {
      kind = kinds[event.kind];
      if (event.device != NULL)
        print_device(kind, event.device);
      else
        printf("%s %s\n", kind, event.text);
      fflush(stdout);
    }
  }
  wlhid_watch_close(watch);
  return strcmp(kind, last);
}

static void print_event(const wlhid_event* event) {
  size_t i;
  if (event->kind == WLHID_EVENT_STATUS) {
    printf("status %u code %u: %s\n", event->state, event->code, event->text);
  } else if (event->kind == WLHID_EVENT_REPORT) {
    printf("report %u at %s:", event->report_id, event->time_ns > 0 ? "some time" : "no time");
    for (i = 0; i < event->size; ++i) printf(" %02x", event->bytes[i]);
    printf("\n");
  } else {
    printf("values");
    for (i = 0; i < event->value_count; ++i) {
      char name[64];
      wlhid_usage_name(event->values[i].usage_page, event->values[i].usage, name, sizeof name);
      printf(" %s=%" PRId64 " (%zu bytes, %02x)", name, event->values[i].value, event->values[i].size,
             event->values[i].bytes[0]);
    }
    printf("\n");
  }
  fflush(stdout);
}

static int route(uint64_t id, int count, const wlhid_usage* usage) {
  wlhid_input_options options;
  wlhid_input* input = NULL;
  int code;
  memset(&options, 0, sizeof options);
  options.device = id;
  options.usages = usage;
  options.usage_count = usage != NULL;
  code = wlhid_input_open(&options, &input);
  if (code != WLHID_OK) return failed("open", code);
  while (count > 0 && waits(wlhid_input_fd(input))) {
    wlhid_event event;
    while (count > 0 && wlhid_input_next(input, &event) == WLHID_OK) {
      print_event(&event);
      --count;
    }
  }
  wlhid_input_close(input);
  return count == 0 ? 0 : 1;
}

/* Prints the statuses up to one with that state. */
static int wait_for(wlhid_input* input, uint32_t state) {
  wlhid_event event;
  while (waits(wlhid_input_fd(input))) {
    while (wlhid_input_next(input, &event) == WLHID_OK) {
      if (event.kind != WLHID_EVENT_STATUS) continue;
      print_event(&event);
      if (event.state == state) return 0;
    }
  }
  return 1;
}

static int retry(uint64_t id) {
  wlhid_input_options options;
  wlhid_input* input = NULL;
  int code;
  memset(&options, 0, sizeof options);
  options.device = id;
  code = wlhid_input_open(&options, &input);
  if (code != WLHID_OK) return failed("open", code);
  if (wait_for(input, WLHID_STATE_ENDED) != 0) return 1;
  code = wlhid_input_retry(input);
  if (code != WLHID_OK) return failed("retry", code);
  printf("again\n");
  if (wait_for(input, WLHID_ROUTING) != 0) return 1;
  wlhid_input_close(input);
  return 0;
}

static int exclusive(uint64_t id) {
  wlhid_input_options options;
  wlhid_input *first = NULL, *second = NULL;
  int code;
  memset(&options, 0, sizeof options);
  options.device = id;
  options.is_exclusive = 1;
  code = wlhid_input_open(&options, &first);
  if (code != WLHID_OK) return failed("open", code);
  if (wait_for(first, WLHID_ROUTING) != 0) return 1;
  options.is_exclusive = 0;
  code = wlhid_input_open(&options, &second);
  if (code != WLHID_OK) return failed("open", code);
  if (wait_for(second, WLHID_RECONNECTING) != 0) return 1;
  wlhid_input_close(first);
  if (wait_for(second, WLHID_ROUTING) != 0) return 1;
  wlhid_input_close(second);
  return 0;
}

static int presence(void) {
  wlhid_presence found;
  int code = wlhid_router_presence(&found);
  if (code != WLHID_OK) return failed("presence", code);
  printf("%u [%s] [%s] %s\n", found.state, found.installed_version, found.own_version, found.text);
  return 0;
}

static int agree(const char* prompt, void* context) {
  printf("asked: %s\n", prompt);
  return *(int*)context;
}

static int install(int answer) {
  int code = wlhid_router_set_consent(agree, &answer);
  if (code == WLHID_OK) code = wlhid_router_install("C wants it.");
  if (code != WLHID_OK) return failed("install", code);
  printf("installed\n");
  return 0;
}

/* Mistakes are answered, not crashed at. */
static int misuse(void) {
  char tiny[3];
  wlhid_event event;
  printf("%d %s\n", wlhid_input_open(NULL, NULL), wlhid_last_error());
  printf("%d %s\n", wlhid_input_next(NULL, &event), wlhid_last_error());
  printf("%d\n", wlhid_devices_list(NULL, -1, NULL));
  printf("%d %d\n", wlhid_input_fd(NULL), wlhid_watch_fd(NULL));
  printf("%zu %d\n", wlhid_devices_count(NULL), wlhid_devices_at(NULL, 0) == NULL);
  printf("%zu %s\n", wlhid_usage_name(7, 0xe1, tiny, sizeof tiny), tiny);
  wlhid_input_close(NULL);
  wlhid_watch_close(NULL);
  wlhid_devices_free(NULL);
  printf("%s %s\n", wlhid_version(), wlhid_abi_version() == WLHID_ABI_VERSION ? "same" : "other");
  printf("%s\n", wlhid_code_text(WLHID_BUSY));
  return 0;
}

int main(int argc, char** argv) {
  const char* verb = argc > 1 ? argv[1] : "";
  if (strcmp(verb, "list") == 0) return list();
  if (strcmp(verb, "presence") == 0) return presence();
  if (strcmp(verb, "install") == 0) return install(argc > 2 ? WLHID_NOT_PERMITTED : WLHID_OK);
  if (strcmp(verb, "misuse") == 0) return misuse();
  if (strcmp(verb, "watch") == 0 && argc == 3) return watch(argv[2]);
  if (strcmp(verb, "route") == 0 && argc == 4) return route(strtoull(argv[2], NULL, 0), atoi(argv[3]), NULL);
  if (strcmp(verb, "route") == 0 && argc == 6) {
    wlhid_usage usage;
    usage.page = (uint32_t)strtoul(argv[4], NULL, 0);
    usage.id = (uint32_t)strtoul(argv[5], NULL, 0);
    return route(strtoull(argv[2], NULL, 0), atoi(argv[3]), &usage);
  }
  if (strcmp(verb, "retry") == 0 && argc == 3) return retry(strtoull(argv[2], NULL, 0));
  if (strcmp(verb, "exclusive") == 0 && argc == 3) return exclusive(strtoull(argv[2], NULL, 0));
  return 2;
}
