# SPDX-License-Identifier: Apache-2.0

# Making Debian 12 systems out of this system's own package sources; sourced after lib.sh.

CODENAME=bookworm

# This system's package sources for Debian 12, one per line.
debian_sources() {
  # shellcheck disable=SC2016  # the names in parentheses are apt's
  apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(REPO_URI) $(RELEASE) $(COMPONENT) $(SIGNED_BY)' \
    'Created-By: Packages' |
    awk -v codename="$CODENAME" '$1 == "Debian" && $2 ~ "^" codename {
      print "deb", ($6 ~ "^/" ? "[signed-by=" $6 "] " : "") $3, $4, $5
    }' | sort -u
}

# How this system reaches its sources: proxies, and whether it checks their dates.
acquire_options() { apt-config dump | grep -E '^Acquire::(https?|Check-)' || true; }

make_debian() { # make_debian DIRECTORY MMDEBSTRAP_OPTION…
  local directory="$1" settings
  shift
  settings="$(mktemp -d "${TMPDIR:-/tmp}/wlhid-debian.XXXXXX")"
  debian_sources >"$settings/sources.list"
  [[ -s $settings/sources.list ]] ||
    fail "this system has no package source for Debian 12, or no package lists (run apt-get update)"
  acquire_options >"$settings/apt.conf"
  mmdebstrap --quiet --mode=root --aptopt="$settings/apt.conf" "$@" "$CODENAME" "$directory" "$settings/sources.list"
  rm -rf "$settings"
}
