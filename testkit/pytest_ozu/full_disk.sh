#!/bin/sh
# A folder of a panel box on a disk without room: full_disk.sh fill|empty FOLDER
# A copy of the folder on a small disk lies over it; afterwards, files that were written there come back. What is mounted below the
# folder stays as it is.
set -e
folder=$(readlink -e "$2")
place=/run/full-disk/$(echo "$folder" | tr / _)
below=$(awk -v f="$folder/" 'index($5, f) == 1 { print substr($5, length(f) + 1) }' /proc/self/mountinfo | sort -u)

case $1 in
fill)
    without=$(for name in $below; do printf -- '--exclude=./%s ' "$name"; done)
    mkdir -p "$place"
    # shellcheck disable=SC2086
    size=$(tar -C "$folder" $without -cf - . | wc -c)
    mount -t tmpfs -o "size=$((size / 1024 + 256))k" tmpfs "$place"
    # shellcheck disable=SC2086
    tar -C "$folder" $without -cf - . | tar -C "$place" -xf -
    for name in $below; do
        mkdir -p "$place/$name"
        mount --rbind "$folder/$name" "$place/$name"
    done
    touch "$place.filled"
    mount --rbind "$place" "$folder"
    dd if=/dev/zero of="$place/.full" bs=4k 2>/dev/null || :
    ;;
empty)
    umount -l "$folder"
    rm -f "$place/.full"
    for name in $below; do
        umount -l "$place/$name"
    done
    (cd "$place" && find . -type f -newer "$place.filled" -print0 | tar --null -T - -cf -) | tar -C "$folder" -xf -
    umount -l "$place"
    ;;
*)
    echo "usage: full_disk.sh fill|empty FOLDER" >&2
    exit 2
    ;;
esac
