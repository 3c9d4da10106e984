# Makes roots of Debian releases, for tools/check-release and tools/server-root, which source it with
# these set:
#
#   release   the release's name
#   packages  the folder of downloaded packages
#
# and `cannot` defined, which ends the command with its arguments as the reason.
# shellcheck shell=bash disable=SC2154

# With mounts and processes of its own, which end with it, as it ends with the shell that calls it.
apart() {
  setpriv --pdeathsig KILL \
    unshare --mount --pid --ipc --fork --kill-child --mount-proc -- "$@"
}

# Debian's own among the machine's sources, as lines for the release.
debian_sources() {
  local here
  here=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
  # shellcheck disable=SC2016  # apt's own variables
  apt-get indextargets --format '$(REPO_URI) $(CODENAME)' \
    'Created-By: Packages' 'Origin: Debian' 'Component: main' |
    sed -En "s/^(\S+) $here(-updates|-security)?$/deb \1 $release\2 main/p" | sort -u
}

find_mirror() {
  sources=$(debian_sources)
  if [ -z "$sources" ]; then  # apt knows the origin of what it has a list of
    apt-get -q update
    sources=$(debian_sources)
  fi
  mirror=$(awk -v release="$release" '$3 == release {print $2; exit}' <<<"$sources")
  [ -n "$mirror" ] || cannot "this machine's apt has no source of Debian"
  # debootstrap does not ask apt's configuration.
  eval "$(apt-config shell http_proxy Acquire::http::Proxy https_proxy Acquire::https::Proxy)"
  export http_proxy=${http_proxy:-} https_proxy=${https_proxy:-}
}

# make_root FOLDER [OPTION]..., of debootstrap. What has its name was made to the end: it is renamed
# when all of it is on the disk. The release's signature is checked. The date until which the signed
# lists are called valid is not, by debootstrap's nature: a mirror may be behind.
make_root() {
  local root=$1
  shift
  rm -rf --one-file-system "$root" "$root.new"
  apart debootstrap --variant=minbase --force-check-gpg --cache-dir="$packages" "$@" \
    "$release" "$root.new" "$mirror" &&
    touch "$root.new" &&
    sync --file-system "$root.new" &&
    mv "$root.new" "$root"
}
