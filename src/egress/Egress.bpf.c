/* The filter at the egress of a device: drops the frames of muted speakers, and copies the frames of all
 * speakers to a ring for valend, if the device is in the map `devices`.
 *
 * At tc egress, by tcx or in a clsact. Each namespace has its own copy of the program, since the index of a
 * device is not unique beyond; the maps are common to all. For Linux 5.10 and later.
 */
#include "egress/Egress.h"

#include <linux/bpf.h>
#include <linux/pkt_cls.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

char const LICENSE[] SEC( "license" ) = "Dual BSD/GPL";

/* Set before the program is loaded. */
__u32 const volatile filter_number = 0;

struct {
   __uint( type, BPF_MAP_TYPE_HASH );
   __uint( max_entries, EGRESS_MUTES );
   __uint( map_flags, BPF_F_NO_PREALLOC );
   __type( key, struct egress_speaker );
   __type( value, struct egress_mute );
} mutes SEC( ".maps" );

struct {
   __uint( type, BPF_MAP_TYPE_HASH );
   __uint( max_entries, EGRESS_DEVICES );
   __uint( map_flags, BPF_F_NO_PREALLOC );
   __type( key, struct egress_device );
   __type( value, struct egress_limits );
} devices SEC( ".maps" );

struct {
   __uint( type, BPF_MAP_TYPE_RINGBUF );
   __uint( max_entries, EGRESS_RING );
} copies SEC( ".maps" );

struct {
   __uint( type, BPF_MAP_TYPE_ARRAY );
   __uint( max_entries, 1 );
   __type( key, __u32 );
   __type( value, struct egress_lost );
} losses SEC( ".maps" );

/* Where a copy is made. No other program of ours runs on the processor meanwhile. */
struct {
   __uint( type, BPF_MAP_TYPE_PERCPU_ARRAY );
   __uint( max_entries, 1 );
   __type( key, __u32 );
   __type( value, struct egress_copy );
} drafts SEC( ".maps" );

/* --- Which frames are looked at more closely: data must be passed on after a few instructions. ---- */

static __always_inline int control_type( __u16 type ) {
   return type == 0x88cc || type == 0x8809 || type <= 1500;
}

static __always_inline int control_port( __u16 port ) {
   if ( port > 5353 ) {
      return 0; /* most of them */
   }
   switch ( port ) {
   case 520:
   case 521:
   case 1985:
   case 2029:
   case 3784:
   case 4784:
   case 5353:
      return 1;
   default:
      return 0;
   }
}

/* Whether an IP protocol other than UDP may belong to a speaker. */
static __always_inline int control_protocol( __u8 protocol ) {
   switch ( protocol ) {
   case 0:
   case 2:
   case 58:
   case 88:
   case 89:
   case 103:
   case 112:
      return 1;
   default:
      return 0;
   }
}

/* `ip` is at the IP header, if the type says so. Frames whose headers are not in the linear part may be
 * control frames. */
static __always_inline int may_be_control( __be16 type, __u8 * ip, void * end ) {
   if ( type == bpf_htons( 0x0800 ) ) {
      if ( ip + 24 > (__u8 *)end ) {
         return 1;
      }
      if ( ip[ 9 ] == 6 ) {
         return 0;
      }
      if ( ip[ 9 ] == 17 && ip[ 0 ] == 0x45 ) { /* with options, the port is further on */
         return control_port( bpf_ntohs( *(__be16 *)( ip + 22 ) ) );
      }
      if ( ip[ 9 ] == 51 ) { /* the authentication header of VRRP version 2 */
         return ip[ 16 ] == 224;
      }
      return ip[ 9 ] == 17 || control_protocol( ip[ 9 ] );
   }
   if ( type == bpf_htons( 0x86dd ) ) {
      if ( ip + 44 > (__u8 *)end ) {
         return 1;
      }
      if ( ip[ 6 ] == 6 ) {
         return 0;
      }
      if ( ip[ 6 ] == 17 ) {
         return control_port( bpf_ntohs( *(__be16 *)( ip + 42 ) ) );
      }
      if ( ip[ 6 ] == 58 ) {
         return ip[ 40 ] >= 131; /* all but errors, echoes and queries */
      }
      return control_protocol( ip[ 6 ] );
   }
   return control_type( bpf_ntohs( type ) );
}

static __always_inline int is_tag( __be16 type ) {
   return type == bpf_htons( 0x8100 ) || type == bpf_htons( 0x88a8 );
}

/* --- What becomes of a control frame --------------------------------------------------------------- */

static __always_inline int read_head( struct __sk_buff * skb, struct egress_copy * draft ) {
   __u32 length = skb->len;
   if ( length < 14 ) {
      return 0;
   }
   if ( length > EGRESS_HEAD ) {
      length = EGRESS_HEAD;
   }
   __builtin_memset( draft->bytes, 0, EGRESS_HEAD );
   return bpf_skb_load_bytes( skb, 0, draft->bytes, length ) == 0;
}

/* Whether the frame may be copied; counts it. Two processors may count one frame too few. */
static __always_inline int within_limit( struct egress_limits * limits, __u16 kind ) {
   struct egress_second * second;
   __u64 const now = bpf_ktime_get_ns();
   if ( kind >= EGRESS_KINDS ) {
      return 0;
   }
   second = &limits->seconds[ kind ];
   if ( now - second->begin >= 1000000000 ) {
      second->begin = now;
      second->copies = 0;
   }
   if ( second->copies >= EGRESS_COPIES_A_SECOND ) {
      return 0;
   }
   __sync_fetch_and_add( &second->copies, 1 );
   return 1;
}

static __always_inline void copy_frame( struct __sk_buff * skb, struct egress_limits * limits,
                                        struct egress_copy * draft, int muted ) {
   __u32 const only = 0;
   __u32 const length = skb->len;
   struct egress_lost * const lost = bpf_map_lookup_elem( &losses, &only );
   if ( !lost ) {
      return;
   }
   if ( length > EGRESS_LONGEST ) {
      __sync_fetch_and_add( &lost->too_long, 1 );
      return;
   }
   if ( !within_limit( limits, draft->speaker.kind ) ) {
      __sync_fetch_and_add( &lost->limited, 1 );
      return;
   }
   draft->tag_type = skb->vlan_present ? skb->vlan_proto : 0;
   draft->tag = skb->vlan_present ? skb->vlan_tci : 0;
   draft->muted = muted;
   if ( length > EGRESS_HEAD && bpf_skb_load_bytes( skb, 0, draft->bytes, length ) != 0 ) {
      return;
   }
   if ( bpf_ringbuf_output( &copies, draft,
                            __builtin_offsetof( struct egress_copy, bytes ) + length, 0 ) != 0 ) {
      __sync_fetch_and_add( &lost->full, 1 );
   }
}

/* Not inlined: the registers that it needs would be saved for data as well. */
static __noinline int control( struct __sk_buff * skb ) {
   __u32 const only = 0;
   struct egress_copy * draft;
   struct egress_mute * mute;
   struct egress_limits * limits;
   struct egress_device device = { .filter = filter_number, .ifindex = skb->ifindex };
   int muted;

   /* What the machine only forwards is not its own. */
   if ( skb->mark == EGRESS_OWN_MARK || skb->ingress_ifindex != 0 ) {
      return TC_ACT_UNSPEC;
   }
   draft = bpf_map_lookup_elem( &drafts, &only );
   if ( !draft || !read_head( skb, draft ) ) {
      return TC_ACT_UNSPEC;
   }
   if ( skb->vlan_present && is_tag( *(__be16 *)( draft->bytes + 12 ) ) ) {
      return TC_ACT_UNSPEC; /* two tags: of no speaker that is known */
   }
   draft->speaker.filter = device.filter;
   draft->speaker.ifindex = device.ifindex;
   if ( !egress_classify( (struct egress_head *)draft->bytes,
                          skb->vlan_present ? skb->vlan_tci & 0xfff : 0, &draft->speaker ) ) {
      return TC_ACT_UNSPEC;
   }
   mute = bpf_map_lookup_elem( &mutes, &draft->speaker );
   muted = mute && bpf_ktime_get_ns() < mute->until;
   limits = bpf_map_lookup_elem( &devices, &device );
   if ( limits ) {
      copy_frame( skb, limits, draft, muted );
   }
   if ( !muted ) {
      return TC_ACT_UNSPEC;
   }
   __sync_fetch_and_add( &mute->dropped, 1 );
   /* To a device that cannot exist: the kernel drops the frame and reports success to the sender. tcx has no
    * other verdict that does; of a dropped frame daemons would get ENOBUFS, and react to it. */
   return bpf_redirect( 0, 0 );
}

SEC( "tc" )
int valen_egress( struct __sk_buff * skb ) {
   __u8 * const data = (__u8 *)(long)skb->data;
   void * const end = (void *)(long)skb->data_end;
   __be16 type;
   if ( data + 18 > (__u8 *)end ) {
      return control( skb );
   }
   type = *(__be16 *)( data + 12 );
   if ( is_tag( type ) ? may_be_control( *(__be16 *)( data + 16 ), data + 18, end )
                       : may_be_control( type, data + 14, end ) ) {
      return control( skb );
   }
   return TC_ACT_UNSPEC;
}
