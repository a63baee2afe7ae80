#pragma once

/// Software version, shown by the banner, the option "version" and the shell command "version".
constexpr char ORB_MODULE_VERSION[] = "1.0.2452";
