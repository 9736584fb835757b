# SPDX-License-Identifier: Apache-2.0

# Builds the guest's image out of Debian's packages; sourced after lib.sh and packages.sh.
#
#   vmlinux    the kernel, unpacked, so that the guest need not do it
#   initrd     loads what is needed to mount the disk, and mounts it
#   disk.ext4  the system (a sparse file; each guest gets a temporary copy of what it changes)
#   packages   what is installed on it

IMAGE_SOURCES=tests/vm/image
# shellcheck disable=SC2034  # used by scripts/test-vm
IMAGE_BUILD_PACKAGES=(mmdebstrap cpio kmod e2fsprogs xz-utils binutils)

# What the project's packages depend on has to be there already: the guest has no network. jq, procps and kbd are the
# scenarios' own.
GUEST_PACKAGES=(systemd systemd-sysv udev dbus polkitd libpam-systemd acl logrotate apt login passwd procps kmod kbd jq
  libstdc++6 libarchive13 libsodium23)
# Everything that a guest never reads.
GUEST_EXCLUDES=('/usr/share/doc/*' '/usr/share/man/*' '/usr/share/locale/*' '/usr/share/info/*' '/usr/share/i18n/*'
  '/usr/share/zoneinfo/*' '/usr/lib/udev/hwdb.d/*' '/usr/lib/x86_64-linux-gnu/gconv/*' '/usr/share/consolefonts/*'
  '/usr/share/keymaps/*')
DISK_MODULES=(virtio_pci virtio_blk ext4 crc32c_generic)
GUEST_MODULES=(xhci-pci usbhid hid-generic evdev uhid uinput virtio_console virtio-rng dummy_hcd libcomposite usb_f_hid
  configfs autofs4 efi_pstore)
# Units that no scenario needs, each of which costs time in an emulator.
MASKED_UNITS=(systemd-timesyncd.service getty@tty1.service serial-getty@ttyS0.service getty.target remote-fs.target
  systemd-update-utmp.service systemd-update-utmp-runlevel.service systemd-random-seed.service systemd-pstore.service
  systemd-firstboot.service systemd-machine-id-commit.service systemd-journal-catalog-update.service
  systemd-update-done.service systemd-hwdb-update.service systemd-journal-flush.service ldconfig.service
  systemd-remount-fs.service systemd-fsck-root.service systemd-sysctl.service systemd-udev-settle.service
  systemd-binfmt.service proc-sys-fs-binfmt_misc.automount dev-hugepages.mount dev-mqueue.mount sys-kernel-debug.mount
  sys-kernel-tracing.mount sys-fs-fuse-connections.mount modprobe@drm.service modprobe@fuse.service
  modprobe@efi_pstore.service modprobe@loop.service modprobe@dm_mod.service e2scrub_all.timer e2scrub_reap.service
  fstrim.timer dpkg-db-backup.timer apt-daily.timer apt-daily-upgrade.timer logrotate.timer
  systemd-tmpfiles-clean.timer systemd-ask-password-wall.path systemd-ask-password-console.path
  console-setup.service keyboard-setup.service)

# Two images made of the same files are the same image.
image_hash() {
  { find "$IMAGE_SOURCES" -type f -print0 | sort -z | xargs -0 sha256sum; sha256sum scripts/packages.sh; } | sha256sum | cut -c 1-16
}

joined() { local IFS=,; printf '%s' "$*"; } # joined WORD…: with commas

# The tree of the system. The kernel is fetched with its package sources but not installed: of its 400 MB the guest
# needs a few modules. busybox is for the initrd.
make_guest_tree() { # make_guest_tree WORK
  local work="$1" excludes=() path
  for path in "${GUEST_EXCLUDES[@]}"; do excludes+=(--dpkgopt="path-exclude=$path"); done
  # shellcheck disable=SC2016  # the variable is the hook's
  make_debian "$work/root" --variant=essential --include="$(joined "${GUEST_PACKAGES[@]}")" "${excludes[@]}" \
    --aptopt='APT::Install-Recommends "false"' --aptopt='Acquire::Languages "none"' --dpkgopt=force-unsafe-io \
    --customize-hook="cd '$work/fetched' && export APT_CONFIG=\"\$MMDEBSTRAP_APT_CONFIG\" &&
      apt-get -q -o APT::Sandbox::User=root download busybox-static \
        \"\$(apt-cache depends linux-image-amd64 | sed -n 's/.*Depends: \(linux-image-[0-9].*\)/\1/p')\""
}

unpack_kernel() { # unpack_kernel VMLINUZ VMLINUX: the part that the boot protocol's header points to
  local sectors offset length
  read -r sectors < <(od -An -tu1 -j $((0x1f1)) -N 1 "$1")
  read -r offset length < <(od -An -tu4 -j $((0x248)) -N 8 "$1")
  # The last four bytes are the unpacked size.
  xz -dc --single-stream >"$2" < <(tail -c "+$(((sectors + 1) * 512 + offset + 1))" "$1" | head -c $((length - 4)))
  strip -s "$2"
}

module_files() { # module_files TREE VERSION MODULE…: with what they depend on, in the order of loading
  local tree="$1" version="$2" module
  shift 2
  for module in "$@"; do
    modprobe -d "$tree" -S "$version" --show-depends --ignore-install "$module" | sed -n 's/^insmod \(.*\.ko\).*/\1/p'
  done | awk '!seen[$0]++'
}

make_initrd() { # make_initrd WORK VERSION OUTPUT
  local tree="$1/initrd" file
  mkdir -p "$tree"/{bin,dev,disk,modules}
  cp "$1/busybox/bin/busybox" "$tree/bin/"
  install -m 755 "$IMAGE_SOURCES/init" "$tree/init"
  module_files "$1/kernel" "$2" "${DISK_MODULES[@]}" >"$1/modules"
  while read -r file; do
    cp "$file" "$tree/modules/"
    printf '/modules/%s\n' "$(basename "$file")" >>"$tree/modules/order"
  done <"$1/modules"
  mknod "$tree/dev/console" c 5 1
  (cd "$tree" && find . | cpio -o -H newc --quiet) >"$3"
}

add_modules() { # add_modules WORK VERSION: to the system's tree
  local kernel="$1/kernel" directory="$1/root/usr/lib/modules/$2" file target
  mkdir -p "$directory"
  cp "$kernel/lib/modules/$2"/modules.{builtin,builtin.modinfo,order} "$directory/"
  module_files "$kernel" "$2" "${DISK_MODULES[@]}" "${GUEST_MODULES[@]}" >"$1/modules"
  while read -r file; do
    target="$1/root/usr${file#"$kernel"}"
    mkdir -p "$(dirname "$target")"
    cp "$file" "$target"
  done <"$1/modules"
  depmod -b "$1/root" "$2"
}

# alice may answer questions for an administrator, as the first user of a Debian system may; bob may not.
add_users() { # add_users ROOT
  chroot "$1" useradd -m -s /bin/bash -u 1000 -G sudo alice
  chroot "$1" useradd -m -s /bin/bash -u 1001 bob
  printf '%s\n' alice:alice bob:bob | chroot "$1" chpasswd
}

set_up_guest() { # set_up_guest ROOT
  local root="$1" unit
  cp -a --no-preserve=ownership "$IMAGE_SOURCES/files/." "$root/"
  add_users "$root"
  echo guest >"$root/etc/hostname"
  echo '127.0.0.1 localhost guest' >"$root/etc/hosts"
  : >"$root/etc/fstab"
  echo 0123456789abcdef0123456789abcdef >"$root/etc/machine-id" # fixed: an empty one is a first boot, with more to do
  rm -rf "${root:?}"/{boot,var/cache/apt,var/lib/apt/lists}/* "${root:?}"/etc/apt/sources.list*
  for unit in "${MASKED_UNITS[@]}"; do ln -sf /dev/null "$root/etc/systemd/system/$unit"; done
  mkdir -p "$root/etc/systemd/system/multi-user.target.wants"
  ln -sf /usr/lib/systemd/system/multi-user.target "$root/etc/systemd/system/default.target"
  ln -sf ../scenarios.service "$root/etc/systemd/system/multi-user.target.wants/scenarios.service"
}

make_disk() { # make_disk ROOT OUTPUT: with room for what scenarios write
  local megabytes=$(($(du -sm "$1" | cut -f1) * 5 / 4 + 256))
  mkfs.ext4 -q -F -L guest -O '^has_journal,^metadata_csum,^64bit' -m 0 -d "$1" "$2" "${megabytes}M"
}

build_image() ( # build_image DIRECTORY: appears there complete or not at all
  part="$1.part"
  [[ $EUID -eq 0 ]] ||
    fail "building the guest's image needs root's rights (once; afterwards it is taken from $1): run this command as root"
  rm -rf "$part"
  mkdir -p "$part"
  work="$(mktemp -d "${TMPDIR:-/tmp}/wlhid-image.XXXXXX")"
  trap 'rm -rf --one-file-system "$work" "$part"' EXIT
  chmod 755 "$work"
  mkdir "$work/fetched"
  make_guest_tree "$work"
  dpkg-deb -x "$work"/fetched/linux-image-*.deb "$work/kernel"
  dpkg-deb -x "$work"/fetched/busybox-static_*.deb "$work/busybox"
  kernel="$(ls "$work/kernel/lib/modules")"
  depmod -b "$work/kernel" "$kernel"
  unpack_kernel "$work/kernel/boot/vmlinuz-$kernel" "$part/vmlinux"
  make_initrd "$work" "$kernel" "$part/initrd"
  add_modules "$work" "$kernel"
  # shellcheck disable=SC2016  # the names are dpkg-query's
  chroot "$work/root" dpkg-query -W -f '${Package} ${Version}\n' >"$part/packages"
  set_up_guest "$work/root"
  make_disk "$work/root" "$part/disk.ext4"
  rm -rf "$1"
  mv "$part" "$1"
)
