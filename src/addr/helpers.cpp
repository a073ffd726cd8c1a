#include <stdlib.h>

#include "mcast/common.h"

void MCAST_StqReverse(MCAST_STQ_S *queue)
{
    MCAST_STQ_NODE_S *reversed = nullptr;
    MCAST_STQ_NODE_S *node = queue->head;

    queue->tail = queue->head;
    while (node != nullptr) {
        MCAST_STQ_NODE_S *next = node->next;

        node->next = reversed;
        reversed = node;
        node = next;
    }
    queue->head = reversed;
}

void MCAST_FreeFunc(void *pointer)
{
    free(pointer);
}
