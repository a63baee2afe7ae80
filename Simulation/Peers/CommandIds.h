#pragma once

#include <cstdint>

namespace peers {

/// The commands by their numbers on the wire, said a second time so that a wrong number in the module is noticed.
enum CommandId : std::uint32_t {
    RESTART_MCS_LINK = 667,
    SET_ROUTER_SAMPLE_RATE = 674,
    IO_INFO_REQ = 800,
    IO_INFO = 801,
    IO_GPI_UPDATE = 805,
    IO_ACTIVE_ROUTER = 806,
    IO_INFO_CARD = 811,
    IO_INFO_DEV_REQ = 814,
    PORT_BITMAP = 815,
    IO_OUTPUT_MUTE = 816,
    IO_INFO_K2MOD = 822,
    ROUTER_INFO = 825,
    REMOTE_IO_UPDATE = 826,
    REMOTE_ROUTER_UPDATE = 827,
    ROUTER_INFO_REQ = 829,
    PATCH_FAILED = 834,
    PATCH_RETRY = 835,
    PING = 839,
    PATCH_SUCCESSFUL = 841,
    IO_BOX_INTERNALS = 844,
    GPI_INFO_REQUEST = 858,
    CHAIN_LENGTH = 859,
    MOD_IO_CARD_FAILURE = 871,
    IO_SAMPLE_CAPABILITIES = 874,
    IO_SET_SAMPLE_RATE = 875,
    IO_INFO_REQ_EX = 877,
    FORWARD_TO_ACTIVE = 880,
    ROUTER_TIME_ALLOWANCE = 885,
    ROUTER_PATCH_AUDIO = 886,
    REMOTE_CABLE_STATE = 893,
    DEVICES_TO_CHECK = 6000,
    DEVICE_CHECK_RESULTS = 6001,
    MASTER_ROUTER_NOTIFICATION = 7020,
    MIXED_HID_ERROR = 7021
};

} // namespace peers
