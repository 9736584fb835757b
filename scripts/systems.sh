# SPDX-License-Identifier: Apache-2.0

# Running commands in a Debian system in a directory, as packages.sh makes them; sourced after lib.sh.

# A command's mounts and processes disappear with the namespaces it runs in.
run_in() { # run_in DIRECTORY COMMAND…: in the system in it, as root, without input
  # shellcheck disable=SC2016  # the variables are the inner shell's
  unshare --mount --pid --fork --kill-child --propagation private sh -ec '
    mount -t proc proc "$1/proc"
    mount -t sysfs -o ro sysfs "$1/sys"
    mkdir -p "$1/dev/pts" "$1/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=0620,gid=5 devpts "$1/dev/pts"
    mount -t tmpfs tmpfs "$1/dev/shm"
    system="$1"
    shift
    exec chroot "$system" env -i HOME=/root LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin \
      ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
      ${no_proxy:+no_proxy="$no_proxy"} "$@"
  ' sh "$@" </dev/null
}
