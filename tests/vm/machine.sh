# SPDX-License-Identifier: Apache-2.0

# The emulated machine; sourced after lib.sh. $image is the directory of the guest's image, $patience the factor that
# limits are multiplied with.
#
# A machine's directory: payload/ goes in as a tar archive on its second disk; results and console come out.

BOOT_OPTIONS="console=ttyS0 quiet loglevel=4 panic=-1 mitigations=off nokaslr random.trust_cpu=on no_timer_check
  apparmor=0 audit=0 cryptomgr.notests 8250.nr_uarts=1 systemd.show_status=0"
USB_DEVICES=(usb-tablet usb-mouse usb-kbd)

# A group's file "devices" lists the USB devices that its machine has from the start.
devices_of() { # devices_of GROUP
  local file="tests/vm/scenarios/$1/devices"
  if [[ -e $file ]]; then grep -v '^#' "$file" || true; else printf '%s\n' "${USB_DEVICES[@]}"; fi
}

# Never with KVM, even where it is there: nested, the guest hangs. Nor with counted instructions (-icount), which would make
# the guest's time independent of the host's load: there it hangs when it injects its first event. Without a PS/2
# controller, what is typed can only go to the USB devices. Eight ports, because with fewer the emulator adds a hub for what
# is plugged in later. The firmware is the one that does not spend seconds on USB. The second serial port is wired to the
# machine's own control connection.
machine_options() { # machine_options DIRECTORY DEVICES BOOT_OPTION…: an array, machine
  local directory="$1" device
  # shellcheck disable=SC2054  # the commas are the emulator's
  machine=(-machine pc,i8042=off,hpet=off,vmport=off,graphics=off -accel tcg,thread=multi -cpu max -smp 2 -m 1024
    -nodefaults -no-user-config -display none -no-reboot -bios qboot.rom
    -kernel "$image/vmlinux" -initrd "$image/initrd" -append "${BOOT_OPTIONS//$'\n'/ } ${*:3}"
    -drive "file=$image/disk.ext4,format=raw,if=none,id=system,snapshot=on,cache=unsafe"
    -device virtio-blk-pci,drive=system
    -drive "file=$directory/payload.tar,format=raw,if=none,id=payload,readonly=on"
    -device virtio-blk-pci,drive=payload
    -device virtio-rng-pci -device virtio-serial-pci
    -chardev "file,id=results,path=$directory/results" -device virtserialport,chardev=results,name=results
    -chardev "socket,id=control,path=$directory/control,server=on,wait=off" -mon chardev=control,mode=control
    -chardev "socket,id=port,path=$directory/control" -device virtserialport,chardev=port,name=qmp
    -device qemu-xhci,id=xhci,p2=8,p3=8)
  for device in $2; do machine+=(-device "$device,id=${device#usb-},bus=xhci.0"); done
}

pack_payload() { # pack_payload DIRECTORY
  tar -cf "$1/payload.tar" --owner=0 --group=0 -C "$1/payload" .
  truncate -s %512 "$1/payload.tar"
}

start_machine() { # start_machine DIRECTORY DEVICES SECONDS
  local machine
  pack_payload "$1"
  : >"$1/results"
  machine_options "$1" "$2"
  timeout -k 5 "$3" qemu-system-x86_64 "${machine[@]}" -serial "file:$1/console" </dev/null >"$1/emulator" 2>&1 &
  machine_pid=$!
  echo "$machine_pid" >"$1/pid"
}

shell_machine() { # shell_machine DIRECTORY
  local machine
  pack_payload "$1"
  machine_options "$1" "${USB_DEVICES[*]}" guest.shell
  qemu-system-x86_64 "${machine[@]}" -serial mon:stdio
}

follow_results() { tail -n +1 -s 0.2 -f --pid="$machine_pid" "$1/results" 2>/dev/null; } # follow_results DIRECTORY

# Says how the machine ended, if that was not by itself.
end_machine() { # end_machine DIRECTORY SECONDS
  local status=0 reason=""
  wait "$machine_pid" || status=$?
  rm -f "$1/pid"
  if [[ $status -eq 124 || $status -eq 137 ]]; then
    reason="not finished after $2 s (WLHID_VM_PATIENCE=$((patience * 2)) gives a slow machine more)"
  elif [[ $status -ne 0 ]]; then
    reason="the emulator failed with $status: $(tail -n 3 "$1/emulator")"
  elif ! grep -q '^finished$' "$1/results"; then
    reason="the machine went off before its scenarios had finished"
  fi
  [[ -z $reason ]] || machine_failed "$1" "$reason"
}

stop_machines() { # stop_machines DIRECTORY: those whose directories are in it
  local file
  for file in "$1"/*/pid; do
    [[ ! -e $file ]] || kill "$(cat "$file")" 2>/dev/null || true
  done
}
