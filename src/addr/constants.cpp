#include "mcast/addr.h"

const MCAST_ADDR_S g_stPimAllRoutersAddr4 = {MCAST_FAMILY_IPV4, 0, {224, 0, 0, 13}};
const MCAST_ADDR_S g_stPimAllRoutersAddr6 = {
    MCAST_FAMILY_IPV6, 0, {0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0d}};

const MCAST_ADDR_S g_stMcastDefSrcAddr4 = {MCAST_FAMILY_IPV4, 0, {}};
const MCAST_ADDR_S g_stMcastDefSrcAddr6 = {MCAST_FAMILY_IPV6, 0, {}};

const MCAST_ADDR_S g_stMcastDefGrpAddr4 = {MCAST_FAMILY_IPV4, 0, {224}};
const MCAST_ADDR_S g_stMcastDefGrpAddr6 = {MCAST_FAMILY_IPV6, 0, {0xff}};
