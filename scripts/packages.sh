# Sourced by the other scripts: installs what is missing, on Debian.

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
  fi
  echo "Installing: ${missing[*]}"
  "${root[@]}" apt-get update -qq
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
