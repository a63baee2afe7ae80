# Debian packages for another processor, for scripts that source this file. A separate apt, with its own architecture,
# lists, archives and an empty system, fetches them and their dependencies from this machine's package sources. It needs no
# root, and leaves the machine's packages and settings alone.
# shellcheck shell=bash

# use_foreign_apt ARCHITECTURE DIRECTORY: from now on apt is that one; the directory is emptied for it.
use_foreign_apt() {
    rm -rf "$2"
    mkdir -p "$2"/{lists,archives}/partial
    : >"$2/status"
    cat >"$2/apt.conf" <<CONFIGURATION
APT::Architecture "$1";
#clear APT::Architectures;
APT::Architectures { "$1"; };
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Dir::State "$2";
Dir::State::status "$2/status";
Dir::Cache "$2";
CONFIGURATION
    export APT_CONFIG=$2/apt.conf
    # A mirror may lack the list of one suite for this architecture; only the packages matter.
    apt-get update --quiet || echo "Continuing with the lists that could be fetched."
}
