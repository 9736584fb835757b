/*
 * SPDX-License-Identifier: Apache-2.0
 */

/* Prints what the first pen sends until it ends: an application with a poll loop of its own waits for the input's descriptor
   among its others. */
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <wlhid.h>

static void print_values(const wlhid_event* event) {
  char name[64];
  for (size_t i = 0; i < event->value_count; ++i) {
    const wlhid_value* value = &event->values[i];
    wlhid_usage_name(value->usage_page, value->usage, name, sizeof name);
    printf("%s=%" PRId64 " ", name, value->value);
  }
  printf("\n");
}

int main(void) {
  const wlhid_criterion pen = {
      .fields = WLHID_MATCH_USAGE_PAGE | WLHID_MATCH_USAGE, .usage_page = 0x0d, .usage = 0x02};
  const wlhid_input_options options = {.filter = {.matching = &pen, .matching_count = 1}};
  wlhid_input* input;
  wlhid_event event = {0};
  if (wlhid_input_open(&options, &input) != WLHID_OK) {
    fprintf(stderr, "%s\n", wlhid_last_error());
    return 1;
  }
  struct pollfd source = {.fd = wlhid_input_fd(input), .events = POLLIN};
  while (event.state != WLHID_STATE_ENDED && poll(&source, 1, -1) > 0) {
    while (wlhid_input_next(input, &event) == WLHID_OK) {
      if (event.kind == WLHID_EVENT_VALUES) print_values(&event);
      if (event.kind == WLHID_EVENT_STATUS) printf("%s\n", event.text);
      fflush(stdout);
    }
  }
  wlhid_input_close(input);
  return 0;
}
