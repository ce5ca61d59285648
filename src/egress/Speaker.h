/* Which speaker a frame is from. A speaker is one instance of a protocol on a device: one LLDP port, one
 * virtual router, one OSPF router id. All of its frames are muted together, and no others.
 *
 * In C, because both the filter in the kernel (Egress.bpf.c) and valend use it: valend takes the speaker from
 * the goodbye that it sends, and the filter from each frame that leaves the device. Reads only inside
 * the head of the frame, whatever that says; the verifier of the kernel sees to it.
 */
#pragma once

#include <linux/types.h>

/* The values are part of no interface; `EGRESS_KINDS` counts them. */
enum egress_kind {
   EGRESS_NO_KIND,
   EGRESS_LLDP,
   EGRESS_RA,
   EGRESS_VRRP,
   EGRESS_OSPF2,
   EGRESS_OSPF3,
   EGRESS_BFD,
   EGRESS_PIM,
   EGRESS_LACP,
   EGRESS_RIP,
   EGRESS_RIPNG,
   EGRESS_ISIS,
   EGRESS_EIGRP,
   EGRESS_MDNS,
   EGRESS_IGMP,
   EGRESS_MLD,
   EGRESS_CDP,
   EGRESS_HSRP,
   EGRESS_OAM,
   EGRESS_KINDS
};

/* Compared and hashed as bytes, so it has no padding. */
struct egress_speaker {
   __u32 filter;  /* the number of the namespace's filter */
   __u32 ifindex; /* in that namespace */
   __u16 kind;    /* egress_kind */
   __u16 vlan;    /* the id of the tag; 0 if untagged */
   __u8 identity[ 20 ];
};

/* The beginning of a frame, from its destination address on; zeros after its end. */
#define EGRESS_HEAD 256
struct egress_head {
   __u8 bytes[ EGRESS_HEAD ];
};

/* Begins anew after the last byte, which only a frame that no speaker sends makes necessary. A mask is all that
 * the verifier needs, and it has no branch, each of which would double the verifier's work. */
static inline __u8 egress_u8( struct egress_head const * head, __u32 at ) {
   return head->bytes[ at & ( EGRESS_HEAD - 1 ) ];
}

static inline __u16 egress_u16( struct egress_head const * head, __u32 at ) {
   return (__u16)( egress_u8( head, at ) << 8 | egress_u8( head, at + 1 ) );
}

/* Constant bounds, so that the filter has no loop here. */
#define EGRESS_COPY( to, head, at, count )                                                         \
   for ( __u32 i_ = 0; i_ < ( count ); ++i_ ) {                                                    \
      ( to )[ i_ ] = egress_u8( head, ( at ) + i_ );                                               \
   }

/* 64 bits of FNV-1a over the chassis id and the port id, which must be the first two TLVs (IEEE 802.1AB, 8.4.2). */
static inline int egress_lldp( struct egress_head const * head, __u32 at,
                               struct egress_speaker * speaker ) {
   enum { chassis_type = 1, port_type = 2, most = 160 };
   __u32 const chassis = egress_u16( head, at );
   __u32 const port_at = at + 2 + ( chassis & 0x1ff );
   __u32 const port = egress_u16( head, port_at );
   __u32 end = port_at + 2 + ( port & 0x1ff );
   __u64 hash = 0xcbf29ce484222325ULL;
   if ( chassis >> 9 != chassis_type || port >> 9 != port_type ) {
      return 0;
   }
   for ( __u32 i = 0; i < most; ++i ) {
      if ( at + i >= end ) {
         break;
      }
      hash = ( hash ^ egress_u8( head, at + i ) ) * 0x100000001b3ULL;
   }
   for ( int i = 0; i < 8; ++i ) {
      speaker->identity[ i ] = (__u8)( hash >> 8 * i );
   }
   return EGRESS_LLDP;
}

/* Slow protocols (IEEE 802.3, 57A): LACP (802.1AX, 6.4.2) by the actor's system, key and port, and OAM by
 * the source address. */
static inline int egress_slow( struct egress_head const * head, __u32 at,
                               struct egress_speaker * speaker ) {
   switch ( egress_u8( head, at ) ) {
   case 1:
      EGRESS_COPY( speaker->identity, head, at + 4, 14 );
      speaker->identity[ 8 ] = speaker->identity[ 9 ] = 0; /* the key changes with the speed */
      return EGRESS_LACP;
   case 3:
      EGRESS_COPY( speaker->identity, head, 6, 6 );
      return EGRESS_OAM;
   default:
      return 0;
   }
}

/* Frames with a length instead of a type: IS-IS (ISO 10589) by PDU type and source id, CDP by the source
 * address. */
static inline int egress_llc( struct egress_head const * head, __u32 at,
                              struct egress_speaker * speaker ) {
   if ( egress_u16( head, at ) == 0xfefe && egress_u8( head, at + 2 ) == 3 &&
        egress_u8( head, at + 3 ) == 0x83 ) {
      __u8 const type = egress_u8( head, at + 7 ) & 0x1f;
      if ( type < 15 || type > 17 ) {
         return 0; /* not a hello */
      }
      speaker->identity[ 0 ] = type;
      EGRESS_COPY( speaker->identity + 1, head, at + 12, 6 );
      return EGRESS_ISIS;
   }
   if ( egress_u16( head, at ) == 0xaaaa && egress_u8( head, at + 2 ) == 3 &&
        egress_u16( head, at + 3 ) == 0 && egress_u8( head, at + 5 ) == 0x0c &&
        egress_u16( head, at + 6 ) == 0x2000 ) {
      EGRESS_COPY( speaker->identity, head, 6, 6 );
      return EGRESS_CDP;
   }
   return 0;
}

/* Messages in UDP. The source address is in the identity already. */
static inline int egress_udp( struct egress_head const * head, __u32 at, int ipv6,
                              struct egress_speaker * speaker ) {
   switch ( egress_u16( head, at + 2 ) ) {
   case 520:
      return ipv6 ? 0 : EGRESS_RIP;
   case 521:
      return ipv6 ? EGRESS_RIPNG : 0;
   case 5353:
      return EGRESS_MDNS;
   case 3784:
   case 4784: /* RFC 5881, RFC 5883: the discriminator is unique in the system */
      EGRESS_COPY( speaker->identity + 16, head, at + 8 + 4, 4 );
      return EGRESS_BFD;
   case 1985:
   case 2029: /* RFC 2281: the group; version 2 has it in a TLV */
      speaker->identity[ 16 ] = egress_u8( head, at + 8 );
      if ( speaker->identity[ 16 ] == 0 ) {
         speaker->identity[ 17 ] = egress_u8( head, at + 8 + 6 );
      } else {
         EGRESS_COPY( speaker->identity + 17, head, at + 8 + 6, 2 );
      }
      return EGRESS_HSRP;
   default:
      return 0;
   }
}

/* OSPF by the router id, version 3 with its instance (RFC 2328, A.3.1; RFC 5340, A.3.1). */
static inline int egress_ospf( struct egress_head const * head, __u32 at, int ipv6,
                               struct egress_speaker * speaker ) {
   if ( egress_u8( head, at ) != ( ipv6 ? 3 : 2 ) ) {
      return 0;
   }
   EGRESS_COPY( speaker->identity + 16, head, at + 4, 4 );
   if ( ipv6 ) {
      speaker->identity[ 15 ] ^= egress_u8( head, at + 14 );
   }
   return ipv6 ? EGRESS_OSPF3 : EGRESS_OSPF2;
}

/* VRRP by the virtual router alone: its address may differ from packet to packet (RFC 5798, 5.2.3). */
static inline int egress_vrrp( struct egress_head const * head, __u32 at, int ipv6,
                               struct egress_speaker * speaker ) {
   for ( int i = 0; i < 16; ++i ) {
      speaker->identity[ i ] = 0;
   }
   speaker->identity[ 0 ] = (__u8)( ipv6 ? 6 : 4 );
   speaker->identity[ 1 ] = egress_u8( head, at + 1 );
   return EGRESS_VRRP;
}

static inline int egress_ip( struct egress_head const * head, __u8 protocol, __u32 at, int ipv6,
                             struct egress_speaker * speaker ) {
   switch ( protocol ) {
   case 17:
      return egress_udp( head, at, ipv6, speaker );
   case 88:
      return EGRESS_EIGRP;
   case 89:
      return egress_ospf( head, at, ipv6, speaker );
   case 103:
      return EGRESS_PIM;
   case 112:
      return egress_vrrp( head, at, ipv6, speaker );
   default:
      return 0;
   }
}

static inline int egress_ipv4( struct egress_head const * head, __u32 at,
                               struct egress_speaker * speaker ) {
   __u8 const first = egress_u8( head, at );
   __u32 payload = at + 4 * ( first & 0xf );
   __u8 protocol = egress_u8( head, at + 9 );
   if ( first >> 4 != 4 || ( first & 0xf ) < 5 || ( egress_u16( head, at + 6 ) & 0x1fff ) != 0 ) {
      return 0; /* not the first fragment */
   }
   EGRESS_COPY( speaker->identity, head, at + 12, 4 );
   if ( protocol == 2 ) {
      /* Reports and leaves. A querier's queries are those of a router. */
      __u8 const type = egress_u8( head, payload );
      return type == 0x12 || type == 0x16 || type == 0x17 || type == 0x22 ? EGRESS_IGMP : 0;
   }
   if ( protocol == 51 ) { /* the authentication header of VRRP version 2 */
      protocol = egress_u8( head, payload );
      payload += 8 + 4 * egress_u8( head, payload + 1 );
   }
   return egress_ip( head, protocol, payload, 0, speaker );
}

static inline int egress_ipv6( struct egress_head const * head, __u32 at,
                               struct egress_speaker * speaker ) {
   __u32 payload = at + 40;
   __u8 protocol = egress_u8( head, at + 6 );
   if ( egress_u8( head, at ) >> 4 != 6 ) {
      return 0;
   }
   EGRESS_COPY( speaker->identity, head, at + 8, 16 );
   if ( protocol == 0 ) { /* hop-by-hop options: the router alert of MLD */
      protocol = egress_u8( head, payload );
      payload += 8 + 8 * egress_u8( head, payload + 1 );
   }
   if ( protocol == 58 ) {
      __u8 const type = egress_u8( head, payload );
      return type == 134 ? EGRESS_RA : type == 131 || type == 132 || type == 143 ? EGRESS_MLD : 0;
   }
   return egress_ip( head, protocol, payload, 1, speaker );
}

/* Sets kind, vlan and identity, and returns the kind: EGRESS_NO_KIND for a frame of no known protocol. The
 * caller sets filter and ifindex.
 *   tag   the VLAN id if the tag is not in the bytes, else 0 */
static inline int egress_classify( struct egress_head const * head, __u16 tag,
                                   struct egress_speaker * speaker ) {
   __u32 at = 14;
   __u16 type = egress_u16( head, 12 );
   int kind = 0;
   if ( type == 0x8100 || type == 0x88a8 ) {
      tag = egress_u16( head, 14 ) & 0xfff;
      type = egress_u16( head, 16 );
      at = 18;
   }
   for ( int i = 0; i < 20; ++i ) {
      speaker->identity[ i ] = 0;
   }
   if ( type == 0x0800 ) {
      kind = egress_ipv4( head, at, speaker );
   } else if ( type == 0x86dd ) {
      kind = egress_ipv6( head, at, speaker );
   } else if ( type == 0x88cc ) {
      kind = egress_lldp( head, at, speaker );
   } else if ( type == 0x8809 ) {
      kind = egress_slow( head, at, speaker );
   } else if ( type <= 1500 ) {
      kind = egress_llc( head, at, speaker );
   }
   speaker->kind = (__u16)kind;
   speaker->vlan = tag;
   return kind;
}
