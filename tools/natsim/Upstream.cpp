#include "tools/natsim/Upstream.h"

#include "platform/mount/VekSharedMemMountDescription.h"

namespace natsim {

namespace {

template <class T>
Fwk::Ptr<T> mountShared( VekSharedMem::EntityManager& sharedMem, std::string const& path,
                         std::string const& typeName ) {
   sharedMem.doMount(
       path, typeName,
       VekSharedMem::MountDescription( VekSharedMem::MountDescription::shared ) );
   return sharedMem.getEntity<T>( path );
}

}  // namespace

class Upstream::AnswerReactor
    : public Fwk::ReactorOn<Xact::XactSluiceStatusDir const, Upstream> {
public:
   AnswerReactor( Xact::XactSluiceStatusDir::PtrConst const& dir, Upstream* upstream,
                  U16 modId )
       : ReactorOn( dir, upstream ), modId_( modId ) {
      hasNotificationActiveIs( true );
   }
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      if ( attr != Xact::XactSluiceStatusDir::attrXactStatus || key.removed() ) {
         return;
      }
      Xact::XactSluiceStatus const* status =
          notifier()->xactStatus( key.as<Xact::XactSluiceKey>() );
      if ( status ) {
         owner()->handleAnswer( modId_, *status );
      }
   }

private:
   U16 modId_;
};

Upstream::Upstream( SimPlatform& platform, AnswerHandler onAnswer )
    : platform_( platform ), onAnswer_( std::move( onAnswer ) ) {
   VekSharedMem::EntityManager& sharedMem = *platform_.agent().sharedMem;
   requests_ = mountShared<Xact::XactSluiceConfigDir>(
       sharedMem, "corvanenat/ingXactSluiceConfigDir", "Xact::XactSluiceConfigDir" );
   hwKeyUidTable_ = mountShared<CorvaneNat::HwKeyUidTable>(
       sharedMem, "corvanenat/hwKeyUidTable", "CorvaneNat::HwKeyUidTable" );
   uidHwKeyTable_ = mountShared<CorvaneNat::UidHwKeyTable>(
       sharedMem, "corvanenat/uidHwKeyTable", "CorvaneNat::UidHwKeyTable" );
   shadow_ = mountShared<Oro::NatHwShadow>( sharedMem, "corvanenat/hwShadow",
                                            "Oro::NatHwShadow" );
   modSetDir_ = mountShared<CorvaneNat::ModSetDir>( sharedMem, "corvanenat/ingModSetDir",
                                                    "CorvaneNat::ModSetDir" );
   for ( auto const& module : platform_.commonData().modIdToUnit() ) {
      moduleIs( module.first );
   }
}

Upstream::~Upstream() = default;

void Upstream::moduleIs( U16 modId ) {
   if ( answerReactors_.count( modId ) ) {
      return;
   }
   VekSharedMem::EntityManager& sharedMem = *platform_.agent().sharedMem;
   std::string path = "corvanenat/ingXactSluiceStatusDir/" + std::to_string( modId );
   VekSharedMem::MountDescription description(
       VekSharedMem::MountDescription::localStatus );
   description.collectionSizeIs( "xactStatus", 0x4000 );
   sharedMem.doMount( path, "Xact::XactSluiceStatusDir", description );
   auto dir = sharedMem.getEntity<Xact::XactSluiceStatusDir const>( path );
   answerReactors_[modId] = std::make_unique<AnswerReactor>( dir, this, modId );
}

void Upstream::natRule( NatRuleStep const& step ) {
   CorvaneNat::Uid uid( step.uid );
   shadow_->entryIs(
       Oro::NatHwShadowEntry( step.key, step.data, uid,
                              static_cast<Oro::NatHwShadowEntry::Dirty>( step.dirty ) ) );
   CorvaneNat::HwKeyUidEntry row;
   row.uid = uid;
   row.mcastUid = step.mcastUid;
   hwKeyUidTable_->entryIs( step.key, row );
   uidHwKeyTable_->entryIs( uid, step.key );
   CorvaneNat::ModSet modules;
   for ( U16 modId : step.modules ) {
      modules.moduleIs( modId );
   }
   modSetDir_->modSetIs( uid, modules );
   publish( uid, step.field, std::move( modules ) );
}

bool Upstream::natRuleRemove( NatRuleRemoveStep const& step, std::string* problem ) {
   Oro::NatHwShadowEntry const* present = shadow_->entry( step.key );
   if ( !present ) {
      *problem = "the key is not in the shadow: " + step.key.stringValue();
      return false;
   }
   Oro::NatHwShadowEntry entry = *present;
   entry.dirtyIs( Oro::NatHwShadowEntry::deletePending );
   shadow_->entryIs( entry );
   CorvaneNat::Uid uid( step.uid );
   uidHwKeyTable_->entryIs( uid, step.key );
   CorvaneNat::ModSet modules;
   if ( CorvaneNat::ModSet const* set = modSetDir_->modSet( uid ) ) {
      modules = *set;
   } else {
      for ( auto const& module : platform_.commonData().modIdToUnit() ) {
         modules.moduleIs( module.first );
      }
      modSetDir_->modSetIs( uid, modules );
   }
   publish( uid, step.field, modules );
   return true;
}

void Upstream::publish( CorvaneNat::Uid uid, U32 field, CorvaneNat::ModSet modules ) {
   awaiting_[uid.value()] = std::move( modules );
   fields_[uid.value()] = field;
   Xact::XactSluiceConfig request;
   request.key = Xact::XactSluiceKey( uid );
   request.field = field;
   requests_->xactConfigIs( request );
}

void Upstream::handleAnswer( U16 modId, Xact::XactSluiceStatus const& status ) {
   U32 uid = status.key.uid().value();
   onAnswer_( Answer{ modId, uid, status.result, status.field } );
   auto waiting = awaiting_.find( uid );
   if ( waiting == awaiting_.end() ) {
      return;
   }
   waiting->second.moduleDel( modId );
   if ( waiting->second.modules() == 0 ) {
      awaiting_.erase( waiting );
      finish( status.key.uid() );
   }
}

void Upstream::finish( CorvaneNat::Uid uid ) {
   requests_->xactConfigDel( Xact::XactSluiceKey( uid ) );
   Oro::NatHwKey const* key = uidHwKeyTable_->entry( uid );
   if ( !key ) {
      return;
   }
   Oro::NatHwKey hwKey = *key;
   Oro::NatHwShadowEntry const* present = shadow_->entry( hwKey );
   if ( !present ) {
      return;
   }
   if ( present->dirty() == Oro::NatHwShadowEntry::deletePending ) {
      fields_.erase( uid.value() );
      shadow_->entryDel( hwKey );
      hwKeyUidTable_->entryDel( hwKey );
      uidHwKeyTable_->entryDel( uid );
      modSetDir_->modSetDel( uid );
      return;
   }
   Oro::NatHwShadowEntry entry = *present;
   entry.dirtyIs( Oro::NatHwShadowEntry::clean );
   shadow_->entryIs( entry );
}

void Upstream::replay() {
   CorvaneNat::ModSet modules;
   for ( auto const& module : platform_.commonData().modIdToUnit() ) {
      modules.moduleIs( module.first );
   }
   replayed_.clear();
   for ( auto const& entry : *shadow_ ) {
      replayed_.insert( entry.second.uid().value() );
   }
   for ( U32 uid : replayed_ ) {
      if ( requests_->xactConfigHas( Xact::XactSluiceKey( CorvaneNat::Uid( uid ) ) ) ) {
         awaiting_[uid] = modules;
      } else {
         auto field = fields_.find( uid );
         publish( CorvaneNat::Uid( uid ), field == fields_.end() ? 0 : field->second,
                  modules );
      }
   }
}

bool Upstream::replayAnswered() const {
   for ( U32 uid : replayed_ ) {
      if ( awaiting_.count( uid ) ) {
         return false;
      }
   }
   return true;
}

void Upstream::trapAcl( TrapAclStep const& step ) {
   Oro::NatTrapAcl acl( Oro::NatTrapKey( step.name, step.vlan ) );
   acl.implicitDenyIs( step.implicitDeny );
   for ( TrapRule const& rule : step.rules ) {
      Oro::NatTrapRule trapRule;
      trapRule.permitIs( rule.permit );
      trapRule.srcIpIs( rule.src );
      trapRule.dstIpIs( rule.dst );
      trapRule.poolIs( rule.pool );
      acl.ruleBySequenceIs( rule.seq, trapRule );
   }
   platform_.trapConfig().trapAclIs( acl );
}

bool Upstream::trapAclRemove( TrapAclRemoveStep const& step, std::string* problem ) {
   if ( !platform_.trapConfig().trapAclDel( Oro::NatTrapKey( step.name, step.vlan ) ) ) {
      *problem = "the trap config holds no ACL \"" + step.name + "\" on VLAN " +
                 std::to_string( step.vlan );
      return false;
   }
   return true;
}

void Upstream::mcastMode( McastModeStep const& step ) {
   std::vector<Ip::Nat::McastTranslationType> types;
   for ( U32 type : step.types ) {
      types.push_back( static_cast<Ip::Nat::McastTranslationType>( type ) );
   }
   platform_.mcastTranslationMode().typesIs( types );
}

}  // namespace natsim
