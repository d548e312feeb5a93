// The NAT entities where they do more than hold what they are given: the multicast
// translation list, trap ACL rules in sequence order, and the trap and hit-count keys.
// What every table and directory holds and announces is seen through the plug-in's
// tests, which publish and read them as upstream, agent and plug-in do.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "platform/fwk/ActivityManager.h"
#include "platform/nat/McastTranslationMode.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/nat/TcamHitCountStatus.h"

namespace {

using CorvaneNat::TcamHitCountKey;
using Ip::Nat::McastTranslationMode;
using Ip::Nat::McastTranslationType;
using Oro::NatTrapAcl;
using Oro::NatTrapKey;
using Oro::NatTrapRule;
using Wirel::IpAddr;
using Wirel::IpAddrWithFullMask;

typedef std::vector<std::string> Log;

template <class T>
std::string text( T const& v ) {
   std::ostringstream os;
   os << v;
   return os.str();
}

// The text of a key of one of the types Ks, "-" for a plain attribute's null key, "?"
// for a key of any other type.
template <class... Ks>
std::string keyText( Fwk::KeyRef key ) {
   if ( key.isNull() ) {
      return "-";
   }
   std::string s = "?";
   ( ( key.is<Ks>() ? void( s = text( key.as<Ks>() ) ) : void() ), ... );
   return s;
}

// Logs each change as "<entity>.<attribute>[<key>]".
template <class E, class... Ks>
class Recorder : public Fwk::ReactorOn<E, Log> {
public:
   Recorder( Fwk::Ptr<E> const& e, Log* log ) : Fwk::ReactorOn<E, Log>( e, log ) {
      this->hasNotificationActiveIs( true );
   }
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      this->owner()->push_back( this->notifier()->name() + "." + std::to_string( attr ) +
                                "[" + keyText<Ks...>( key ) + "]" );
   }
};

std::string change( char const* entity, Fwk::AttributeId attr, std::string const& key ) {
   return std::string( entity ) + "." + std::to_string( attr ) + "[" + key + "]";
}

IpAddrWithFullMask prefix( U32 address, unsigned length ) {
   return IpAddrWithFullMask( IpAddr( address ), Wirel::prefixMask( length ) );
}

TcamHitCountKey hitKey( U16 srcPort ) {
   return TcamHitCountKey( TcamHitCountKey::dynamicSrcNat, IpAddr( 0x0a000001 ), srcPort,
                           IpAddr( 0xc0000201 ), 80, 6 );
}

class NatEntitiesTest : public ::testing::Test {
protected:
   Fwk::ScopedActivityManager scope{ new Fwk::VirtualClock };
   Fwk::ActivityManager& loop = scope.manager();
   Log log;
};

TEST_F( NatEntitiesTest, TypesIsPublishesTheListAtPositionsFromZeroAndDropsTheRest ) {
   McastTranslationMode::Ptr mode( new McastTranslationMode( "mode" ) );
   auto types = [&mode] {
      std::vector<std::string> v;
      for ( auto const& [position, type] : *mode ) {
         v.push_back( std::to_string( position ) + ":" + valueToStrep( type ) );
      }
      return v;
   };
   mode->translationTypeIs( 9, Ip::Nat::mcastXlateSrcPort );  // a stray position
   mode->typesIs( { Ip::Nat::mcastXlateGroup, Ip::Nat::mcastXlateSrc,
                    Ip::Nat::mcastXlateSrcGroup } );
   EXPECT_EQ( mode->numTranslationTypes(), 3u );
   EXPECT_EQ( types(), ( std::vector<std::string>{ "0:mcastXlateGroup", "1:mcastXlateSrc",
                                                   "2:mcastXlateSrcGroup" } ) );

   Recorder<McastTranslationMode, U32> r( mode, &log );
   mode->typesIs( { static_cast<McastTranslationType>( 42 ) } );
   EXPECT_EQ( mode->numTranslationTypes(), 1u );
   EXPECT_EQ( types(), ( std::vector<std::string>{ "0:42" } ) );
   loop.runUntilIdle();
   EXPECT_EQ(
       log,
       ( Log{ change( "mode", McastTranslationMode::attrTranslationType, "0" ),
              change( "mode", McastTranslationMode::attrTranslationType, "1" ),
              change( "mode", McastTranslationMode::attrTranslationType, "2" ),
              change( "mode", McastTranslationMode::attrNumTranslationTypes, "-" ) } ) );

   mode->typesIs( {} );
   EXPECT_EQ( mode->numTranslationTypes(), 0u );
   EXPECT_EQ( mode->translationTypes(), 0u );

   mode->typesIs( { Ip::Nat::mcastXlateSrc, Ip::Nat::mcastXlateGroupPort } );
   mode->translationTypeDelAll();
   EXPECT_EQ( mode->translationTypes(), 0u );
   EXPECT_EQ( mode->numTranslationTypes(), 2u ) << "the count is the publisher's to set";
}

TEST_F( NatEntitiesTest, TrapAclRulesIterateInAscendingSequence ) {
   NatTrapAcl acl( NatTrapKey( "outside", 20 ) );
   EXPECT_FALSE( acl.implicitDeny() );
   EXPECT_TRUE( acl.ruleBySequence().empty() );

   NatTrapRule const pool( true, prefix( 0xc6336400, 24 ), {}, true );
   NatTrapRule const deny( false, prefix( 0x0a000000, 8 ), prefix( 0x0a000000, 8 ) );
   acl.ruleBySequenceIs( 30, pool );
   acl.ruleBySequenceIs( 5, deny );
   acl.ruleBySequenceIs( 4000000000u, deny );
   acl.ruleBySequenceIs( 20, deny );
   acl.ruleBySequenceIs( 20, pool );  // replaces
   EXPECT_TRUE( acl.ruleBySequenceDel( 4000000000u ) );
   EXPECT_FALSE( acl.ruleBySequenceDel( 4000000000u ) );
   std::vector<std::string> rules;
   for ( auto const& [seq, rule] : acl.ruleBySequence() ) {
      rules.push_back( std::to_string( seq ) + " " + text( rule ) );
   }
   EXPECT_EQ( rules, ( std::vector<std::string>{
                         "5 deny src 10.0.0.0/8 dst 10.0.0.0/8",
                         "20 permit src 198.51.100.0/24 dst 0.0.0.0/0 pool",
                         "30 permit src 198.51.100.0/24 dst 0.0.0.0/0 pool" } ) );

   // Equality covers the key, implicit deny and every rule.
   NatTrapAcl copy = acl;
   EXPECT_EQ( copy, acl );
   copy.implicitDenyIs( true );
   EXPECT_NE( copy, acl );
   copy = acl;
   NatTrapRule changed = pool;
   changed.dstIpIs( prefix( 0x08080808, 32 ) );
   copy.ruleBySequenceIs( 30, changed );
   EXPECT_NE( copy, acl );
   EXPECT_NE( NatTrapAcl( NatTrapKey( "outside", 21 ) ), NatTrapAcl( acl.key() ) );
}

// `same`, built apart from `base` with equal fields, must compare and hash equal; each
// variant differs in one field and must be another key, both in order and (for these
// samples) in hash.
template <class K>
void expectKeysDistinct( K const& base, K const& same, std::vector<K> const& variants ) {
   EXPECT_EQ( same, base );
   EXPECT_FALSE( same < base || base < same );
   EXPECT_EQ( same.hash( 7 ), base.hash( 7 ) );
   for ( K const& v : variants ) {
      EXPECT_NE( v, base ) << v;
      EXPECT_TRUE( v < base || base < v ) << v;
      EXPECT_NE( v.hash( 7 ), base.hash( 7 ) ) << v;
   }
}

TEST( NatKeysTest, TrapAndHitCountKeysAreEqualExactlyWhenEveryFieldIs ) {
   NatTrapKey const trap( "inside", 10 );
   expectKeysDistinct( trap, NatTrapKey( std::string( "ins" ) + "ide", 10 ),
                       { NatTrapKey( "inside", 11 ), NatTrapKey( "insidf", 10 ),
                         NatTrapKey( "insid", 10 ), NatTrapKey( "", 10 ) } );
   EXPECT_EQ( trap.stringValue(), "aclName: inside, vlanId: 10" );

   TcamHitCountKey const hit = hitKey( 1024 );
   std::vector<TcamHitCountKey> variants( 6, hit );
   variants[0].keyTypeIs( TcamHitCountKey::dynamicDstNat );
   variants[1].srcAddrIs( IpAddr( 0x0a000002 ) );
   variants[2].srcPortIs( 1025 );
   variants[3].dstAddrIs( IpAddr( 0xc0000202 ) );
   variants[4].dstPortIs( 81 );
   variants[5].protocolIs( 17 );
   expectKeysDistinct( hit, hitKey( 1024 ), variants );
   // Ports swapped between source and destination are another key.
   TcamHitCountKey swapped = hit;
   swapped.srcPortIs( hit.dstPort() );
   swapped.dstPortIs( hit.srcPort() );
   EXPECT_NE( swapped, hit );

   EXPECT_EQ( hit.stringValue(),
              "type: dynamicSrcNat, src: 10.0.0.1:1024, dst: 192.0.2.1:80, proto: 6" );
   EXPECT_EQ( TcamHitCountKey().stringValue(),
              "type: dynamicSrcNat, src: 0.0.0.0:0, dst: 0.0.0.0:0, proto: 0" );
   EXPECT_EQ( valueToStrep( static_cast<TcamHitCountKey::NatKeyType>( 2 ) ), "2" );
}

}  // namespace
