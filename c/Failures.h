// SPDX-License-Identifier: Apache-2.0

// What fails becomes a code and words; no exception leaves the library.
//
// Threading: the words are those of the calling thread.
#pragma once

#include <exception>
#include <functional>
#include <new>
#include <string>

#include "WLHIDAccess/InputWords.h"
#include "c/wlhid.h"

namespace wlhid::abi {

[[nodiscard]] wlhid_code codeOf(const Error& error);
/// Keeps the words for wlhid_last_error and returns the code.
int fail(wlhid_code code, const std::string& text) noexcept;

/// Runs `work`, which returns a code.
template <class Work>
int guarded(const Work& work) noexcept {
  try {
    return work();
  } catch (const Error& error) {
    return fail(codeOf(error), error.what());
  } catch (const std::bad_alloc&) {
    return fail(WLHID_NO_MEMORY, wlhid_code_text(WLHID_NO_MEMORY));
  } catch (const std::exception& error) {
    return fail(WLHID_FAILED, error.what());
  } catch (...) {
    return fail(WLHID_FAILED, wlhid_code_text(WLHID_FAILED));
  }
}

/// For a null pointer where there must not be one.
int badArgument(const char* which) noexcept;

}  // namespace wlhid::abi
