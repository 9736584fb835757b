/*
 * SPDX-License-Identifier: Apache-2.0
 */

/* An application of another project, in C: says which library it has, and whether the router is installed. */
#include <stdio.h>
#include <wlhid.h>

int main(void) {
  wlhid_presence presence;
  if (wlhid_router_presence(&presence) != WLHID_OK) return 1;
  printf("version %s\n", wlhid_version());
  printf("%s\n", presence.state == WLHID_PRESENT ? "installed" : "not installed");
  return 0;
}
