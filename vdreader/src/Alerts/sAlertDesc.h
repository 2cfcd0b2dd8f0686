// One alert, decoded.  docs/formats/alert.md tells the stored form.

#pragma once

#include <cstdint>

#include "Alerts/alertPart.h"

struct AlertClassCode {
    char text[13];
};

// Fields without a getter are the writer's own.
struct sAlertDesc {
    std::uint32_t word0 = 0;
    std::uint32_t word1 = 0;
    std::uint32_t word2 = 0;
    std::uint8_t send_type = 0;
    char firm_id[13] = {};
    std::uint32_t type = 0;
    std::uint32_t perms = 0;
    std::uint32_t perms_ex = 0;
    std::uint32_t perms_ex2 = 0;
    std::uint64_t flags = 0;
    char client_code[13] = {};
    AlertPart<std::uint8_t> data_id;
    std::uint16_t short0 = 0;
    std::uint64_t quad0 = 0;
    std::uint64_t quad1 = 0;
    AlertPart<std::uint8_t> body;
    std::uint64_t body_size = 0; // stored apart from the length of `body`
    std::uint32_t word3 = 0;
    std::uint32_t word4 = 0;
    std::uint32_t word5 = 0;
    std::uint32_t word6 = 0;
    AlertPart<AlertClassCode> class_codes;
    AlertPart<std::uint32_t> user_ids;
};
