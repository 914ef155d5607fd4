# SPDX-License-Identifier: MIT
# Sourced by the other scripts: installs what is missing, on Debian. On a terminal it asks before it uses sudo.

need() {
  local missing=() package
  for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed'; then
      missing+=("$package")
    fi
  done
  if [ "${#missing[@]}" -eq 0 ]; then
    return
  fi
  local root=()
  if [ "$(id -u)" -ne 0 ]; then
    root=(sudo)
    if [ -t 0 ] && ! confirmed "Missing: ${missing[*]}. Install with sudo apt-get?"; then
      echo "Nothing was installed. By hand: sudo apt-get install ${missing[*]}" >&2
      exit 1
    fi
  fi
  echo "Installing: ${missing[*]}"
  "${root[@]}" apt-get update -qq
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

confirmed() {
  local answer
  read -r -p "$1 [y/N] " answer
  [[ $answer == [yY]* ]]
}
