/* A C program as a user of the installed libraries writes it; consumer.cpp is the same file as C++. */
#include <mcast/addr.h>
#include <mcast/format.h>
#include <mcasthost/loop.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static uint64_t Line(char *buffer, size_t size, const char *format, ...)
{
    const MRIB_GMP_VRF_KEY_S instance = {MCAST_FAMILY_IPV4, 0};
    va_list args;
    va_start(args, format);
    const uint64_t length = MCAST_vsprintf(&instance, MCAST_NONE, 0, format, args, size, buffer);
    va_end(args);
    return length;
}

int main(void)
{
    char text[64];
    const int loop = HOST_LoopCreate();
    if (loop < 0 || close(loop) != 0 || MCAST_GrpAddrCheck(&g_stPimAllRoutersAddr4) > MCAST_TRUE) {
        return 1;
    }
    if (Line(text, sizeof(text), "%A has mask %u", &g_stPimAllRoutersAddr4,
             MCAST_Mask2MaskLen(0xffffff00u)) == 0) {
        return 1;
    }
    puts(text);
    return strcmp(text, "224.0.0.13 has mask 24") == 0 ? 0 : 1;
}
