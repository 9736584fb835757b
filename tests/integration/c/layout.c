/*
 * SPDX-License-Identifier: Apache-2.0
 */

/* Prints the size of each structure and the offset of its last field, as NAME:SIZE:FIELD:OFFSET. */
#include <stdio.h>

#include "wlhid.h"

#define PRINT(type, last) printf(#type ":%zu:" #last ":%zu\n", sizeof(type), offsetof(type, last))

int main(void) {
  PRINT(wlhid_presence, text);
  PRINT(wlhid_device, reserved);
  PRINT(wlhid_criterion, id);
  PRINT(wlhid_filter, excluding_count);
  PRINT(wlhid_watch_event, text);
  PRINT(wlhid_input_options, reserved);
  PRINT(wlhid_value, size);
  PRINT(wlhid_event, reserved);
  return 0;
}
