// The NAT tables and directories: what they hold, and the changes their reactors
// receive from the event loop.

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/fwk/ActivityManager.h"
#include "platform/nat/HwKeyUidTable.h"
#include "platform/nat/ModSetDir.h"
#include "platform/nat/NatHwShadow.h"
#include "platform/nat/UidHwKeyTable.h"
#include "platform/nat/XactSluiceDir.h"

namespace {

using CorvaneNat::Uid;
using Oro::NatHwKey;
using Oro::NatHwShadowEntry;

typedef std::vector<std::string> Log;

template <class T>
std::string text( T const& v ) {
   std::ostringstream os;
   os << v;
   return os.str();
}

// Logs each change as "<entity>.<attribute>[<key>]"; a key of another type than K
// logs as "?".
template <class E, class K>
class Recorder : public Fwk::ReactorOn<E, Log> {
public:
   Recorder( Fwk::Ptr<E> const& e, Log* log ) : Fwk::ReactorOn<E, Log>( e, log ) {
      this->hasNotificationActiveIs( true );
   }
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      this->owner()->push_back( this->notifier()->name() + "." + std::to_string( attr ) +
                                "[" + ( key.is<K>() ? text( key.as<K>() ) : "?" ) + "]" );
   }
};

class NatTablesTest : public ::testing::Test {
protected:
   Fwk::ScopedActivityManager scope{ new Fwk::VirtualClock };
   Fwk::ActivityManager& loop = scope.manager();
   Log log;

   static NatHwKey key( U32 faId ) {
      Wirel::IpAndPort const host( Wirel::IpAddr( 0x0a000001 ), 80 );
      return NatHwKey( NatHwKey::staticSrcNat, host, host, {}, {}, false, 6, faId,
                       Oro::NatAclId( 1 ) );
   }
   // "<entity>.<attribute>[<key>]", as Recorder logs it.
   template <class K>
   static std::string change( char const* entity, Fwk::AttributeId attr, K const& k ) {
      return std::string( entity ) + "." + std::to_string( attr ) + "[" + text( k ) + "]";
   }
};

TEST_F( NatTablesTest, ShadowAndUidTablesAnnounceWritesAndRemovalsWithTheirKeys ) {
   Oro::NatHwShadow::Ptr shadow( new Oro::NatHwShadow( "shadow" ) );
   CorvaneNat::HwKeyUidTable::Ptr keyToUid( new CorvaneNat::HwKeyUidTable( "keyToUid" ) );
   CorvaneNat::UidHwKeyTable::Ptr uidToKey( new CorvaneNat::UidHwKeyTable( "uidToKey" ) );
   Recorder<Oro::NatHwShadow, NatHwKey> r1( shadow, &log );
   Recorder<CorvaneNat::HwKeyUidTable, NatHwKey> r2( keyToUid, &log );
   Recorder<CorvaneNat::UidHwKeyTable, Uid> r3( uidToKey, &log );

   Oro::NatHwData data;
   data.vlanIdAppend( 10 );
   NatHwShadowEntry e( key( 1 ), data, Uid( 7 ), NatHwShadowEntry::programPending );
   shadow->entryIs( e );
   shadow->entryIs( NatHwShadowEntry( key( 2 ), data, Uid( 8 ) ) );
   e.dirtyIs( NatHwShadowEntry::clean );
   shadow->entryIs( e );  // replaces, and is announced again
   keyToUid->entryIs( key( 1 ), { Uid( 7 ), 300 } );
   uidToKey->entryIs( Uid( 7 ), key( 1 ) );
   EXPECT_TRUE( log.empty() ) << "changes are delivered from the loop";

   EXPECT_EQ( shadow->entrys(), 2u );
   ASSERT_TRUE( shadow->entry( key( 1 ) ) );
   EXPECT_EQ( *shadow->entry( key( 1 ) ), e );
   EXPECT_EQ( shadow->entry( key( 1 ) )->data().vlanId( 0 ), 10 );
   EXPECT_EQ( shadow->entry( key( 3 ) ), nullptr );
   EXPECT_FALSE( shadow->entryHas( key( 3 ) ) );
   std::map<U32, U32> uids;  // faId -> uid, through iteration
   for ( auto const& [k, entry] : *shadow ) {
      EXPECT_EQ( k, entry.key() );
      uids[k.faId()] = entry.uid().value();
   }
   EXPECT_EQ( uids, ( std::map<U32, U32>{ { 1, 7 }, { 2, 8 } } ) );
   ASSERT_TRUE( keyToUid->entry( key( 1 ) ) );
   EXPECT_EQ( keyToUid->entry( key( 1 ) )->mcastUid, 300 );
   EXPECT_FALSE( keyToUid->entryHas( key( 2 ) ) );
   ASSERT_TRUE( uidToKey->entry( Uid( 7 ) ) );
   EXPECT_EQ( *uidToKey->entry( Uid( 7 ) ), key( 1 ) );

   loop.runUntilIdle();
   EXPECT_EQ( log,
              ( Log{ change( "shadow", Oro::NatHwShadow::attrEntry, key( 1 ) ),
                     change( "shadow", Oro::NatHwShadow::attrEntry, key( 2 ) ),
                     change( "shadow", Oro::NatHwShadow::attrEntry, key( 1 ) ),
                     change( "keyToUid", CorvaneNat::HwKeyUidTable::attrEntry, key( 1 ) ),
                     change( "uidToKey", CorvaneNat::UidHwKeyTable::attrEntry, 7 ) } ) );

   log.clear();
   EXPECT_TRUE( shadow->entryDel( key( 2 ) ) );
   EXPECT_FALSE( shadow->entryDel( key( 2 ) ) );  // absent: no change, nothing announced
   EXPECT_TRUE( keyToUid->entryDel( key( 1 ) ) );
   EXPECT_FALSE( uidToKey->entryDel( Uid( 8 ) ) );
   EXPECT_TRUE( uidToKey->entryDel( Uid( 7 ) ) );
   loop.runUntilIdle();
   EXPECT_EQ( log,
              ( Log{ change( "shadow", Oro::NatHwShadow::attrEntry, key( 2 ) ),
                     change( "keyToUid", CorvaneNat::HwKeyUidTable::attrEntry, key( 1 ) ),
                     change( "uidToKey", CorvaneNat::UidHwKeyTable::attrEntry, 7 ) } ) );
   EXPECT_EQ( shadow->entrys(), 1u );
   EXPECT_EQ( keyToUid->entrys(), 0u );
   EXPECT_EQ( uidToKey->entrys(), 0u );

   EXPECT_EQ( valueToStrep( NatHwShadowEntry::clean ), "clean" );
   EXPECT_EQ( valueToStrep( NatHwShadowEntry::programPending ), "programPending" );
   EXPECT_EQ( valueToStrep( NatHwShadowEntry::deletePending ), "deletePending" );
   EXPECT_EQ( valueToStrep( static_cast<NatHwShadowEntry::Dirty>( 3 ) ), "3" );
}

TEST_F( NatTablesTest,
        SluiceAndModuleDirectoriesAnnounceWritesAndRemovalsWithTheirKeys ) {
   Xact::XactSluiceConfigDir::Ptr configs( new Xact::XactSluiceConfigDir( "config" ) );
   Xact::XactSluiceStatusDir::Ptr statuses( new Xact::XactSluiceStatusDir( "status" ) );
   CorvaneNat::ModSetDir::Ptr mods( new CorvaneNat::ModSetDir( "mods" ) );
   Recorder<Xact::XactSluiceConfigDir, Xact::XactSluiceKey> r1( configs, &log );
   Recorder<Xact::XactSluiceStatusDir, Xact::XactSluiceKey> r2( statuses, &log );
   Recorder<CorvaneNat::ModSetDir, Uid> r3( mods, &log );

   Xact::XactSluiceKey const k5( Uid( 5 ) ), k6( Uid( 6 ) );
   configs->xactConfigIs( { k5, 41 } );
   configs->xactConfigIs( { k6, 42 } );
   configs->xactConfigIs( { k5, 43 } );
   statuses->xactStatusIs( { k5, Xact::XactSluiceStatus::hwFull, 43 } );
   CorvaneNat::ModSet set;
   set.moduleIs( 9 );
   set.moduleIs( 2 );
   set.moduleIs( 9 );
   mods->modSetIs( Uid( 5 ), set );
   EXPECT_EQ( text( set ), "{ 2 9 }" );
   EXPECT_TRUE( set.hasModule( 2 ) );
   EXPECT_FALSE( set.hasModule( 3 ) );
   EXPECT_FALSE( set.moduleDel( 3 ) );
   EXPECT_TRUE( set.moduleDel( 9 ) );
   EXPECT_EQ( set.modules(), 1u );
   EXPECT_NE( *mods->modSet( Uid( 5 ) ), set ) << "the directory holds its own copy";

   EXPECT_EQ( configs->xactConfigs(), 2u );
   ASSERT_TRUE( configs->xactConfig( k5 ) );
   EXPECT_EQ( configs->xactConfig( k5 )->field, 43u );
   ASSERT_TRUE( statuses->xactStatus( k5 ) );
   EXPECT_EQ( statuses->xactStatus( k5 )->result, 2u );
   EXPECT_FALSE( statuses->xactStatusHas( k6 ) );
   EXPECT_EQ( mods->modSet( Uid( 6 ) ), nullptr );

   loop.runUntilIdle();
   EXPECT_EQ( log,
              ( Log{ change( "config", Xact::XactSluiceConfigDir::attrXactConfig, 5 ),
                     change( "config", Xact::XactSluiceConfigDir::attrXactConfig, 6 ),
                     change( "config", Xact::XactSluiceConfigDir::attrXactConfig, 5 ),
                     change( "status", Xact::XactSluiceStatusDir::attrXactStatus, 5 ),
                     change( "mods", CorvaneNat::ModSetDir::attrModSet, 5 ) } ) );

   log.clear();
   EXPECT_TRUE( configs->xactConfigDel( k5 ) );
   EXPECT_FALSE( statuses->xactStatusDel( k6 ) );
   EXPECT_TRUE( statuses->xactStatusDel( k5 ) );
   EXPECT_TRUE( mods->modSetDel( Uid( 5 ) ) );
   EXPECT_FALSE( mods->modSetDel( Uid( 5 ) ) );
   loop.runUntilIdle();
   EXPECT_EQ( log,
              ( Log{ change( "config", Xact::XactSluiceConfigDir::attrXactConfig, 5 ),
                     change( "status", Xact::XactSluiceStatusDir::attrXactStatus, 5 ),
                     change( "mods", CorvaneNat::ModSetDir::attrModSet, 5 ) } ) );
   EXPECT_EQ( configs->xactConfigs(), 1u );
   EXPECT_EQ( configs->begin()->second.field, 42u );
   EXPECT_EQ( statuses->xactStatuss(), 0u );
   EXPECT_FALSE( mods->modSetHas( Uid( 5 ) ) );
}

}  // namespace
