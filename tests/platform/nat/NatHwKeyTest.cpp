// The NAT key: its text form and which keys are address-only NAT.

#include <gtest/gtest.h>

#include <sstream>

#include "platform/nat/NatHwKey.h"

namespace {

using Oro::NatAclId;
using Oro::NatHwKey;
using Wirel::IpAddr;
using Wirel::IpAndPort;

IpAndPort ipPort( char const* ip, U16 port ) {
   IpAddr addr;
   EXPECT_TRUE( IpAddr::fromString( ip, addr ) ) << ip;
   return IpAndPort( addr, port );
}

IpAndPort const unset;

TEST( NatHwKeyTest, TextFormPrintsTheAddressesThatAreSetInOrder ) {
   NatHwKey all( NatHwKey::twiceNatSrc, ipPort( "10.0.0.1", 1024 ),
                 ipPort( "192.0.2.7", 80 ), ipPort( "172.16.0.9", 0 ),
                 ipPort( "255.255.255.255", 65535 ), true, 17, 4000000000u,
                 NatAclId( 12 ) );
   EXPECT_EQ( all.stringValue(),
              "type: twiceNatSrc, old sip: 10.0.0.1:1024, new sip: 192.0.2.7:80,"
              " old dip: 172.16.0.9:0, new dip: 255.255.255.255:65535, proto: 17,"
              " faId: 4000000000, aclId: 12, reverse: true" );

   NatHwKey none( NatHwKey::staticSrcNat, unset, unset, unset, unset, false, 0, 0,
                  NatAclId() );
   EXPECT_EQ( none.stringValue(),
              "type: staticSrcNat, proto: 0, faId: 0, aclId: 0, reverse: false" );

   // Only an address of 0.0.0.0 together with port 0 counts as unset; a port alone is
   // printed. Each field keeps its own label whatever else is unset.
   NatHwKey portOnly( NatHwKey::dynamicDstNat, unset, unset, unset,
                      ipPort( "0.0.0.0", 53 ), false, 6, 1, NatAclId( 3 ) );
   EXPECT_EQ( portOnly.stringValue(),
              "type: dynamicDstNat, new dip: 0.0.0.0:53, proto: 6, faId: 1, aclId: 3,"
              " reverse: false" );
   NatHwKey srcNewOnly( NatHwKey::staticDstNat, unset, ipPort( "1.2.3.4", 0 ), unset,
                        unset, false, 0, 0, NatAclId() );
   EXPECT_EQ( srcNewOnly.stringValue(),
              "type: staticDstNat, new sip: 1.2.3.4:0, proto: 0, faId: 0, aclId: 0,"
              " reverse: false" );

   // A type without a name prints its number; the stream gives the same text.
   NatHwKey odd( static_cast<NatHwKey::NatKeyType>( 9 ), unset, unset,
                 ipPort( "8.8.8.8", 0 ), unset, false, 0, 0, NatAclId() );
   std::ostringstream os;
   os << odd;
   EXPECT_EQ(
       os.str(),
       "type: 9, old dip: 8.8.8.8:0, proto: 0, faId: 0, aclId: 0, reverse: false" );
   EXPECT_EQ( NatHwKey().stringValue(),
              "type: natKeyTypeNone, proto: 0, faId: 0, aclId: 0, reverse: false" );
}

TEST( NatHwKeyTest, AddrOnlyNatIsADynamicKeyWithAZeroOldAddress ) {
   IpAndPort const host = ipPort( "10.1.1.1", 0 );
   IpAndPort const zeroWithPort = ipPort( "0.0.0.0", 8080 );
   struct Case {
      NatHwKey::NatKeyType type;
      IpAndPort srcOld, srcNew, dstOld, dstNew;
      bool addrOnly;
   } const cases[] = {
       { NatHwKey::dynamicSrcNat, unset, host, host, host, true },
       { NatHwKey::dynamicSrcNat, host, host, unset, host, true },
       { NatHwKey::dynamicDstNat, zeroWithPort, host, host, host, true },  // port ignored
       { NatHwKey::dynamicDstNat, host, host, zeroWithPort, host, true },
       { NatHwKey::dynamicSrcNat, host, unset, host, unset, false },  // new ones ignored
       { NatHwKey::dynamicDstNat, host, host, host, host, false },
       { NatHwKey::natKeyTypeNone, unset, unset, unset, unset, false },
       { NatHwKey::staticSrcNat, unset, unset, unset, unset, false },
       { NatHwKey::staticDstNat, unset, host, unset, host, false },
       { NatHwKey::twiceNatSrc, unset, unset, unset, unset, false },
       { NatHwKey::twiceNatDst, unset, host, unset, host, false },
       { static_cast<NatHwKey::NatKeyType>( 7 ), unset, unset, unset, unset, false },
   };
   for ( Case const& c : cases ) {
      NatHwKey key( c.type, c.srcOld, c.srcNew, c.dstOld, c.dstNew, false, 6, 0,
                    NatAclId() );
      EXPECT_EQ( key.isAddrOnlyNat(), c.addrOnly ) << key;
   }
}

}  // namespace
