/*
 * The MSDP daemon's side of the MRIB channel: what it reports about remote sources, and the local sources
 * that it learns. The channel itself, its locks, threads and results are those of mcast/mrib.h; the family is
 * IPv4 alone.
 *
 * Of every vrf_index the low 16 bits count. Addresses of 32 bits are in network order. No pointer is kept.
 */
#ifndef MCAST_MSDP_H
#define MCAST_MSDP_H

#include "mcast/common.h"
#include "mcast/mrib.h"

MCAST_EXTERN_C_BEGIN

/* A group and a source. */
typedef struct MRIB_MSDP_SG_S {
    uint32_t group_be;
    uint32_t source_be;
} MRIB_MSDP_SG_S;

/* Pairs that one call of MRIB_MSDP_GetLocalSrc can give. */
#define MRIB_MSDP_BATCH_MAX 255u

/* Which local sources MRIB_MSDP_GetLocalSrc reads. */
typedef struct MRIB_MSDP_FILTER_S {
    uint32_t acl_vrf_index; /* the instance whose ACL is asked */
    uint32_t acl_number;    /* the ACL that a pair must pass; MCAST_NONE passes all */
    uint32_t limit;         /* pairs a call; above MRIB_MSDP_BATCH_MAX counts as that, 0 gives none */
    uint32_t group_be;      /* the only group to read, 0 = all */
} MRIB_MSDP_FILTER_S;

/* Where MRIB_MSDP_GetLocalSrc goes on; all zero to begin. An RP of 0 is the start and the end of a walk. */
typedef struct MRIB_MSDP_CURSOR_S {
    uint32_t rp_be;
    uint32_t group_be;
    uint32_t source_be;
} MRIB_MSDP_CURSOR_S;

/* What one call of MRIB_MSDP_GetLocalSrc gives. */
typedef struct MRIB_MSDP_BATCH_S {
    uint32_t rp_be;
    MRIB_MSDP_SG_S pairs[MRIB_MSDP_BATCH_MAX];
    uint64_t count;
} MRIB_MSDP_BATCH_S;

MCAST_STATIC_ASSERT(sizeof(MRIB_MSDP_SG_S) == 8, "a pair is two addresses");
MCAST_STATIC_ASSERT(sizeof(MRIB_MSDP_FILTER_S) == 16, "a filter is four words");
MCAST_STATIC_ASSERT(sizeof(MRIB_MSDP_CURSOR_S) == 12, "a cursor is three words");
MCAST_STATIC_ASSERT(offsetof(MRIB_MSDP_BATCH_S, pairs) == 4, "pairs follow the RP");
MCAST_STATIC_ASSERT(offsetof(MRIB_MSDP_BATCH_S, count) == 2048, "the count ends a batch");

/*
 * ---- Senders ----
 *
 * Each appends one record and sends at once. MCAST_ERR_GENERAL when the record could not be reserved or the
 * send did not go through, as for the senders of mcast/mrib.h.
 */

/* Whether the MRIB shall report requests for remote sources. */
MCAST_API uint64_t MRIB_MSDP_SendRequestSAEnable(uint32_t vrf_index, uint8_t enable)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* Whether the MRIB shall report encapsulated data. */
MCAST_API uint64_t MRIB_MSDP_SendEncapDataEnable(uint32_t vrf_index, uint8_t enable)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * A remote source. operation 0 deletes; group or source 0 then stands for all. entry is sent unchanged. data
 * points at length bytes that are sent behind the record, or is NULL, and the bytes are then zero. A record
 * that fits no message fails.
 */
MCAST_API uint64_t MRIB_MSDP_SendRemoteOneSG(uint32_t vrf_index, uint8_t operation, uint32_t group_be,
                                             uint32_t source_be, uint8_t entry, const void *data,
                                             uint16_t length) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* Deletes every remote source of the group. */
MCAST_API uint64_t MRIB_MSDP_SendDelOneGrpRemoteSG(uint32_t vrf_index, uint32_t group_be)
    MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/* Deletes every remote source of the instance. */
MCAST_API uint64_t MRIB_MSDP_SendDelAllRemoteSG(uint32_t vrf_index) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * MRIB_MSDP_SendRemoteOneSG for count pairs, with the low byte of the entry of the same place; pairs and
 * entries may be NULL when count is 0. The results are combined.
 */
MCAST_API uint64_t MRIB_MSDP_SendRemoteSG(uint32_t vrf_index, uint8_t operation, const MRIB_MSDP_SG_S *pairs,
                                          const uint16_t *entries, uint8_t count, const void *data,
                                          uint16_t length) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Brackets around a full re-send of remote sources, of MRIB_MSDP_SendRequestSAEnable settings and of
 * MRIB_MSDP_SendEncapDataEnable settings: the MRIB drops what was not sent again between them.
 */
MCAST_API uint64_t MRIB_MSDP_SendSmoothRemoteSGBegin(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);
MCAST_API uint64_t MRIB_MSDP_SendSmoothRemoteSGEnd(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);
MCAST_API uint64_t MRIB_MSDP_SendSmoothRequestEnableBegin(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);
MCAST_API uint64_t MRIB_MSDP_SendSmoothRequestEnableEnd(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);
MCAST_API uint64_t MRIB_MSDP_SendSmoothEncapDataBegin(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);
MCAST_API uint64_t MRIB_MSDP_SendSmoothEncapDataEnd(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * Asks the MRIB to replay the local sources and marks all that are known as unconfirmed; nothing to do, and
 * MCAST_OK, without a local-source callback. MCAST_ERR_GENERAL when the request was not sent; nothing is
 * marked then. Linear in the number of local sources.
 */
MCAST_API uint64_t MRIB_MSDP_SendSmoothLocalSrcRequest(void) MCAST_EXCLUDES(g_stMribConnectInfo.lock);

/*
 * ---- Received records ----
 *
 * Each applies one record of length bytes at value. Records that are too short, whose data does not lie
 * within them, of another family or for an instance out of range change nothing and give MCAST_OK.
 */

/*
 * A local source was added or removed. Every addition is told to the client, also that of a source that is
 * known. A removal takes the source from the first RP that has it, whatever RP the record names, and is not
 * told. MCAST_ERR_GENERAL: memory is short.
 */
MCAST_API uint64_t MRIB_MSDP_ProcLocalSrcChgTlv(uint16_t length, const void *value);

/* A replay of local sources has ended: what it did not confirm goes, without a callback for each. */
MCAST_API uint64_t MRIB_MSDP_ProcLocalSrcSmoothEndTlv(uint16_t length, const void *value);

/* Someone wants a group's remote sources. The result is the callback's, MCAST_OK without one. */
MCAST_API uint64_t MRIB_MSDP_ProcPimRequestRemoteSourceTlv(uint16_t length, const void *value);

/* Encapsulated data arrived. */
MCAST_API uint64_t MRIB_MSDP_ProcEncapdataReportTlv(uint16_t length, const void *value);

/* ---- Queries ---- */

/*
 * 1 when the group is in the instance's SSM range: what its SSM ACL permits, without one 232.0.0.0/8; else 0.
 */
MCAST_API uint32_t MRIB_MSDP_IsSSMGroup(uint32_t vrf_index, uint32_t group_be);

/*
 * Stores in *count the number of local sources (pairs) under the RP, 0 = the first RP. MCAST_ERR_GENERAL,
 * with *count untouched, when it has none.
 */
MCAST_API uint64_t MRIB_MSDP_GetSGCntOfOneRP(uint32_t vrf_index, uint32_t rp_be, uint32_t *count);

/*
 * Reads the local sources of one RP, from the cursor on, into the batch, whose count starts over: those that
 * are not in the SSM range and pass the filter. MCAST_OK: the RP is done; the cursor is at the next one, with
 * the filter's group and source 0, or its RP is 0 and the walk is over. MCAST_WALK_AGAIN: the batch is full;
 * the cursor is at the first pair that did not fit, and the next call goes on there. Each pair reaches one
 * batch. An instance out of range has no sources.
 */
MCAST_API uint64_t MRIB_MSDP_GetLocalSrc(uint32_t vrf_index, const MRIB_MSDP_FILTER_S *filter,
                                         MRIB_MSDP_CURSOR_S *cursor, MRIB_MSDP_BATCH_S *batch);

/* Frees all local sources of the instance. No callback. */
MCAST_API uint64_t MRIB_MSDP_DeleteVrfData(MRIB_GMP_VRF_S *vrf) MCAST_REQUIRES(vrf->lock);

MCAST_EXTERN_C_END

#endif
