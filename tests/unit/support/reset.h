// The gateway's process-wide values as they are at the start of a process: a test that runs whole messages begins and
// ends with them.
#pragma once

#include "inet/address.h"
#include "nm/nm.h"
#include "ux_in/addresses.h"
#include "ux_in/charsets.h"
#include "ux_in/driver.h"
#include "ux_in/header.h"
#include "ux_in/identifiers.h"
#include "ux_in/part_info.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/mime_part.h"
#include "ux_mimein/report_recipients.h"
#include "ux_mimein/subjects.h"

class FreshGateway {
public:
    FreshGateway() { reset(); }
    ~FreshGateway() { reset(); }
    FreshGateway(const FreshGateway&) = delete;
    FreshGateway& operator=(const FreshGateway&) = delete;

private:
    static void reset() {
        ux_reset_recipients();
        ux_reset_directory();
        ux_reset_audit();
        ux_reset_records();
        ux_reset_identifiers();
        ux_reset_addresses();
        ux_reset_charsets();
        ux_reset_part_info();
        ux_reset_header();
        ux_reset_driver();
        ux_reset_mime_input();
        ux_reset_mime_state();
        ux_reset_report();
        ux_reset_subjects();
        inet_reset();
        nm_reset();
    }
};
