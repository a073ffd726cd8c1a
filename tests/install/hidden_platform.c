/* Includes every installed header that needs the platform's, beside a folder platform/ of its own. */
#include <mcast/interface_name.h>
#include <mcast/interface_registry.h>
#include <mcast/mrib.h>
#include <mcast/mtable.h>
#include <mcast/platform/hash.h>
#include <mcast/timer.h>
#include <mcast/usrauth.h>
#include <mcasthost/help.h>
#include <mcasthost/loop.h>

#include "platform/avl.h"

int main(void)
{
    return THE_CONSUMERS_OWN_AVL - (int)sizeof(AVL_NODE_S);
}
