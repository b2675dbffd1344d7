// The default mail node: what the mail system has set for mail that comes in through a kind of node.
#pragma once

#include <cstdint>

inline constexpr int kTnefNode = 7;

struct cl_MailNode {
    std::int32_t update_lists = 0;  // other than 0: TNEF recipients name the entries of address lists (TNEF_UPDATE_DL)
};

// The record of a node; one that nothing is set for is all zero. Raises what the configuration raises.
cl_MailNode cl_ReadDefMNode(int node);
