// Default mail nodes: see mail_node.h.
#include "cl/mail_node.h"

#include "cust/cust.h"

cl_MailNode cl_ReadDefMNode(int node) {
    if (node != kTnefNode) return {};
    return {.update_lists = cust_GetInteger("TNEF_UPDATE_DL", 0)};
}
