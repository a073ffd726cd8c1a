/*
 * Access lists for the tests of msdpd, and a router that is no peer.
 */
#ifndef TESTS_DAEMONS_MSDPD_LISTS_H
#define TESTS_DAEMONS_MSDPD_LISTS_H

#include <gtest/gtest.h>
#include <string>

#include "daemons/msdpd/ipv4.h"
#include "mcasthost/config.h"

namespace msdpd_test
{

inline const msdpd::Ipv4 FAR = {0xc6336401}; // 198.51.100.1, an originator that is no peer

// Lists: 2001 lets group 1 pass, 3001 source 1 of every group.
inline void load_lists(const std::string &group = "239.0.0.1")
{
    const std::string text = "[[acl]]\nnumber = 2001\nfamily = \"ipv4\"\n[[acl.rule]]\nid = 1\naction = "
                             "\"permit\"\nsource = \"" +
                             group +
                             "\"\n[[acl]]\nnumber = 3001\nfamily = \"ipv4\"\n[[acl.rule]]\nid = 1\naction = "
                             "\"permit\"\nsource = \"192.0.2.1\"\n";
    char error[HOST_CONFIG_ERROR_SIZE];
    ASSERT_EQ(HOST_ConfigLoadText("lists", text.data(), text.size(), nullptr, error, sizeof(error)), 0u)
        << error;
}

} // namespace msdpd_test

#endif
