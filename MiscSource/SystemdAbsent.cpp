// For machines without systemd.

#include "MiscSource/SystemdNotifier.h"

SystemdNotifier::SystemdNotifier(boost::asio::io_service& mainService) : mTimer(mainService) {}

SystemdNotifier::~SystemdNotifier() = default;
