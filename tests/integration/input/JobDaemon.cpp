// SPDX-License-Identifier: Apache-2.0

#include "InputFixture.h"

const char* const inputtest::kJobDaemon = WLHID_JOBD_PROGRAM;
