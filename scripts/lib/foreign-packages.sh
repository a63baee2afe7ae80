# Debian packages for another processor, for scripts that source this file. They come from the package sources of this
# machine by an apt of its own, with its own architecture, lists and archives and an empty system, so that what is needed
# below the packages comes along. Neither the packages nor the settings of the machine are touched, and root is not
# needed.
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
    # A mirror may lack the list of one suite for this architecture; what counts is whether the packages can be had.
    apt-get update --quiet || echo "Going on with the lists that could be fetched."
}
