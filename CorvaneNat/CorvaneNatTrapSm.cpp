// The NAT trap filters: which entries an ACL needs, in which order, how each is built,
// and the bookkeeping that gives them back.

#include "CorvaneNat/CorvaneNatTrapSm.h"

#include <algorithm>
#include <ostream>

#include "CorvaneNat/NatConstants.h"
#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/TrapEntryRecipe.h"
#include "platform/fwk/Assert.h"
#include "platform/fwk/LogEvent.h"

namespace CorvaneNat {

namespace {}  // namespace

// --- TcpControl ---

std::string TcpControl::stringValue() const {
   switch ( value_ ) {
      case none:
         return "none";
      case FIN:
         return "FIN";
      case SYN:
         return "SYN";
      case RST:
         return "RST";
      default:
         return std::to_string( value_ );
   }
}

bool TcpControl::fromString( std::string const& text, TcpControl& out ) {
   for ( Flag flag : { none, FIN, SYN, RST } ) {
      if ( text == TcpControl( flag ).stringValue() ) {
         out = TcpControl( flag );
         return true;
      }
   }
   bool const digits = !text.empty() && text.size() <= 10 &&
                       std::all_of( text.begin(), text.end(),
                                    []( char c ) { return c >= '0' && c <= '9'; } );
   if ( !digits ) {
      return false;
   }
   unsigned long long const number = std::stoull( text );
   if ( number > 0xffffffffull ) {
      return false;
   }
   out = TcpControl( U32( number ) );
   return true;
}

std::ostream& operator<<( std::ostream& os, TcpControl tcpControl ) {
   return os << tcpControl.stringValue();
}

// --- TcamEntry ---

TrapSm::TcamEntry::TcamEntry( char const*, char const* ) {
   FWK_ASSERT( !"No String constructor for TcamEntry - has collection" );
}

TrapSm::TcamEntry TrapSm::TcamEntry::fromStrep( std::string const& text ) {
   return TcamEntry( text.data(), text.data() + text.size() );
}

bool TrapSm::TcamEntry::operator==( TcamEntry const& other ) const {
   return key_ == other.key_ && entryId_.size() == other.entryId_.size() &&
          std::equal( entryId_.begin(), entryId_.end(), other.entryId_.begin() );
}

std::string valueToStrep( TrapSm::TcamEntry const& entry ) {
   return "Value('CorvaneNat::TrapSm::TcamEntry', ** {'key': " +
          entry.key().stringValue() + ", 'entryId': None})";
}

std::ostream& operator<<( std::ostream& os, TrapSm::TcamEntry const& entry ) {
   return os << valueToStrep( entry );
}

// --- TrapSm: lifecycle ---

// Reconciles the ACL of each changed key of `trapAcl`.
class TrapSm::TrapConfigReactor
    : public Fwk::ReactorOn<Oro::NatTrapConfig const, TrapSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      if ( attr == Oro::NatTrapConfig::attrTrapAcl && !key.isNull() &&
           key.is<Oro::NatTrapKey>() ) {
         owner()->handleTrapRequest( key.as<Oro::NatTrapKey>() );
      }
   }
};

TrapSm::TrapSm( CorvaneCentral::ModId modId,
                Oro::NatTrapConfig::PtrConst const& trapConfig,
                Corvane::CorvaneTcamGroupManager::Ptr const& groupManager )
    : Entity( "trapSm" ), modId_( modId ), tcamGroupManager_( groupManager ) {
   if ( trapConfig ) {
      trapConfig_ = std::make_unique<TrapConfigReactor>( trapConfig, this );
      trapConfig_->hasNotificationActiveIs( true );
   }
   handleTrapRequest();
   handleInitialized();
}

TrapSm::~TrapSm() {
   // The hardware entries stay: they belong to the entry manager.
   trapConfigDel();
   tcamEntryDelAll();
   entryManager_ = nullptr;
   tcamGroupManager_ = nullptr;
}

Oro::NatTrapConfig const* TrapSm::trapConfig() const {
   return trapConfig_ ? trapConfig_->notifier() : nullptr;
}

void TrapSm::trapConfigDel() {
   if ( trapConfig_ ) {
      trapConfig_->hasNotificationActiveIs( false );
      trapConfig_.reset();
   }
}

void TrapSm::hasNotificationActiveIs( bool active ) {
   if ( trapConfig_ ) {
      trapConfig_->hasNotificationActiveIs( active );
   }
}

void TrapSm::handleInitialized() {
   if ( !initialized() ) {
      initializedIs( true );
   }
}

Corvane::CorvaneTcamEntryManager* TrapSm::entryManager() const {
   // The group manager keeps each group's entry manager for its own life.
   if ( !entryManager_ ) {
      entryManager_ =
          tcamGroupManager_->unboundedEntryManager( Corvane::natTcamGroupAssignment );
   }
   return entryManager_.ptr();
}

// --- TrapSm: the table ---

TrapSm::TcamEntry TrapSm::tcamEntry( Oro::NatTrapKey const& key ) const {
   auto found = tcamEntry_.find( key );
   return found == tcamEntry_.end() ? TcamEntry() : found->second;
}

bool TrapSm::tcamEntryHas( Oro::NatTrapKey const& key ) const {
   return tcamEntry_.find( key ) != tcamEntry_.end();
}

void TrapSm::tcamEntryIs( TcamEntry const& entry ) {
   tcamEntry_.insert_or_assign( entry.key(), entry );
}

TrapSm::TcamEntry TrapSm::tcamEntryDel( Oro::NatTrapKey const& key ) {
   auto found = tcamEntry_.find( key );
   if ( found == tcamEntry_.end() ) {
      return TcamEntry();
   }
   TcamEntry removed = std::move( found->second );
   trackedRow_ = nullptr;
   tcamEntry_.erase( found );
   return removed;
}

void TrapSm::trackEntryId( Oro::NatTrapKey const& key, U32 entryId ) {
   // In place, and the row found once per ACL: copying the row per id made an ACL
   // quadratic in its entries.
   if ( !trackedRow_ || trackedRow_->key() != key ) {
      auto found = tcamEntry_.find( key );
      if ( found == tcamEntry_.end() ) {
         TcamEntry entry;
         entry.entryIdIs( entryId );
         tcamEntryIs( entry );
         return;
      }
      trackedRow_ = &found->second;
   }
   trackedRow_->entryIdIs( entryId );
}

// --- TrapSm: reconciling ACLs ---

void TrapSm::handleTrapRequest() {
   if ( !trapConfig() ) {
      return;
   }
   for ( auto const& acl : trapConfig()->trapAcl() ) {
      handleTrapRequest( acl.first );
   }
}

void TrapSm::handleTrapRequest( Oro::NatTrapKey const& key ) {
   NAT_TRACE( 8, "handleTrapRequest", "" );
   Oro::NatTrapConfig const* config = trapConfig();
   bool const noAcl = !config || config->trapAcls() == 0;
   if ( noAcl && implicitDenyEntryId() != 0 ) {
      releaseImplicitDenyEntry();
   }
   if ( !config || !config->trapAclHas( key ) ) {
      deleteTrapRule( key );
      return;
   }
   // A changed ACL is removed whole and programmed anew.
   if ( tcamEntryHas( key ) ) {
      deleteTrapRule( key );
   }
   tcamEntryIs( TcamEntry( key ) );
   addTrapRule( key );
}

void TrapSm::addTrapRule( Oro::NatTrapKey const& key ) {
   Oro::NatTrapAcl const* present = trapConfig() ? trapConfig()->trapAcl( key ) : nullptr;
   // The configuration does not change while a reaction runs: no copy of the ACL.
   Oro::NatTrapAcl const none( key );
   Oro::NatTrapAcl const& acl = present ? *present : none;
   // Entries without exact-match hit come first; the order is relied upon.
   for ( bool emHit : { false, true } ) {
      if ( !addTrapRulePass( key, acl, emHit ) ) {
         freeEntry( key );
         return;
      }
   }
   if ( acl.implicitDeny() ) {
      programImplicitDenyEntry();
   }
}

bool TrapSm::addTrapRulePass( Oro::NatTrapKey const& key, Oro::NatTrapAcl const& acl,
                              bool emHit ) {
   for ( auto const& sequenced : acl.ruleBySequence() ) {
      Oro::NatTrapRule const& rule = sequenced.second;
      if ( !rule.pool() && !programTrapEntry( key, rule, key.vlanId(), emHit ) ) {
         return false;
      }
   }
   for ( auto const& sequenced : acl.ruleBySequence() ) {
      Oro::NatTrapRule const& rule = sequenced.second;
      if ( rule.pool() && !addPoolRule( key, rule, emHit ) ) {
         return false;
      }
   }
   return true;
}

bool TrapSm::addPoolRule( Oro::NatTrapKey const& key, Oro::NatTrapRule const& rule,
                          bool emHit ) {
   if ( emHit ) {
      // TCP data before TCP control: the control entry catches the TCP that is left.
      if ( programReverseTrapEntry( key, rule, true, true, false ) == 0 ||
           programReverseTrapEntry( key, rule, true, true, true ) == 0 ) {
         return false;
      }
   }
   return programReverseTrapEntry( key, rule, emHit, false, false ) != 0;
}

void TrapSm::deleteTrapRule( Oro::NatTrapKey const& key ) {
   NAT_TRACE( 8, "deleteTrapRule", " " << key.stringValue() );
   if ( tcamEntryHas( key ) ) {
      TcamEntry const entry = tcamEntry( key );
      for ( U32 entryId : entry.entryId() ) {
         FWK_ASSERT( entryId );
         entryManager()->releaseEntry( unit(), entryId );
      }
      tcamEntryDel( key );
   }
   if ( implicitDenyEntryId() == 0 || implicitDenyWanted() ) {
      return;
   }
   releaseImplicitDenyEntry();
}

bool TrapSm::implicitDenyWanted() const {
   if ( !trapConfig() ) {
      return false;
   }
   for ( auto const& acl : trapConfig()->trapAcl() ) {
      if ( acl.second.implicitDeny() ) {
         return true;
      }
   }
   return false;
}

void TrapSm::releaseImplicitDenyEntry() {
   entryManager()->releaseEntry( unit(), implicitDenyEntryId() );
   implicitDenyEntryIdIs( 0 );
}

void TrapSm::freeEntry( Oro::NatTrapKey const& key ) {
   TcamEntry const entry = tcamEntry( key );
   for ( U32 entryId : entry.entryId() ) {
      if ( entryId == 0 ) {
         // The agent's established warning, which log readers match, so it names
         // deleteTrapRule; the row is left for deleteTrapRule to release.
         NAT_TRACE( 0, "freeEntry", "Warning: deleteTrapRule: entryId cannot be 0." );
         return;
      }
      entryManager()->releaseEntry( unit(), entryId );
   }
   tcamEntryDel( key );
   Fwk::logEventRaise( Corvane::CORVANENAT_TRAP_TCAM_RESOURCE_FULL,
                       { key.stringValue() } );
}

// --- TrapSm: entry programming ---

void TrapSm::installTrapEntry( U32 entryId, S32 priority ) {
   Corvane::CorvaneTcamEntryManager* const manager = entryManager();
   manager->setPriorityForEntry( unit(), entryId, priority );
   manager->installEntry( unit(), entryId );
}

U32 TrapSm::getTrapEntry( TrapEntryRecipe& recipe ) {
   return entryManager()->getEntry( unit(), recipe.descriptionTaken(),
                                    CorvaneTcam::RequestKey() );
}

void TrapSm::doApplyRecipe( U32 entryId, TrapEntryRecipe const& recipe ) {
   Corvane::applyFpEntryRecipe( unit(), entryId, recipe, false, 0 );
   installTrapEntry( entryId, recipe.priority() );
}

bool TrapSm::programTrapEntry( Oro::NatTrapKey const& key, Oro::NatTrapRule const& rule,
                               U16 vlanId, bool emHit ) {
   if ( emHit && rule.permit() ) {
      for ( TcpControl flag : { TcpControl::SYN, TcpControl::FIN, TcpControl::RST } ) {
         if ( programTcpControlEntry( key, rule, flag ) == 0 ) {
            return false;
         }
      }
   }
   TrapEntryRecipe recipe = trapEntryRecipe( rule, vlanId, emHit );
   U32 const entryId = getTrapEntry( recipe );
   if ( entryId == 0 ) {
      return false;
   }
   trackEntryId( key, entryId );
   doApplyRecipe( entryId, recipe );
   return true;
}

U32 TrapSm::programTcpControlEntry( Oro::NatTrapKey const& key,
                                    Oro::NatTrapRule const& rule,
                                    TcpControl tcpControl ) {
   TrapEntryRecipe recipe = tcpControlEntryRecipe( rule, tcpControl );
   U32 const entryId = getTrapEntry( recipe );
   if ( entryId == 0 ) {
      return 0;
   }
   trackEntryId( key, entryId );
   if ( !tcpControl.supported() ) {
      NAT_TRACE( 0, "programTcpControlEntry",
                 "Error: Only SYN/FIN/RST check is supported." );
   }
   doApplyRecipe( entryId, recipe );
   return entryId;
}

U32 TrapSm::programReverseTrapEntry( Oro::NatTrapKey const& key,
                                     Oro::NatTrapRule const& rule, bool emHit,
                                     bool tcpCheck, bool tcpControl ) {
   TrapEntryRecipe recipe = reverseTrapEntryRecipe( rule, emHit, tcpCheck, tcpControl );
   U32 const entryId = getTrapEntry( recipe );
   if ( entryId == 0 ) {
      // The request took the description; a full TCAM is rare enough to make it again.
      Fwk::logEventRaise(
          Corvane::CORVANENAT_TRAP_TCAM_RESOURCE_FULL,
          { reverseTrapEntryRecipe( rule, emHit, tcpCheck, tcpControl ).description() } );
      return 0;
   }
   trackEntryId( key, entryId );
   doApplyRecipe( entryId, recipe );
   return entryId;
}

bool TrapSm::programImplicitDenyEntry() {
   TrapEntryRecipe recipe = implicitDenyEntryRecipe();
   U32 const entryId = getTrapEntry( recipe );
   if ( entryId == 0 ) {
      NAT_TRACE( 0, "programImplicitDenyEntry",
                 "Implicit deny acl rule could not be programmed." );
      return false;
   }
   // Shared by every ACL: remembered apart from the rows. A second request replaces
   // the remembered entry; the one it replaces goes back once the new one is in place.
   U32 const replaced = implicitDenyEntryId();
   implicitDenyEntryIdIs( entryId );
   doApplyRecipe( entryId, recipe );
   if ( replaced ) {
      entryManager()->releaseEntry( unit(), replaced );
   }
   return true;
}

// --- TrapSm: actions ---

namespace {

// Applies the actions `add` appends to an entry of unit `module`.
void applyActions( CorvaneCentral::ModId module, U32 entryId,
                   void ( *add )( Corvane::FpEntryRecipe& ) ) {
   Corvane::FpEntryRecipe actions( Corvane::natTcamGroupAssignment, 0, __FILE__, "" );
   add( actions );
   Corvane::applyFpEntryRecipe( module, entryId, actions, false, 0 );
}

}  // namespace

void TrapSm::setTrapToCpuAction( CorvaneCentral::ModId module, U32 entryId ) {
   applyActions( module, entryId, trapToCpuActions );
}

void TrapSm::setSkipCpuAction( CorvaneCentral::ModId module, U32 entryId ) {
   applyActions( module, entryId, skipCpuActions );
}

void TrapSm::setSkipEvxltAction( CorvaneCentral::ModId module, U32 entryId ) {
   applyActions( module, entryId, skipEvxltActions );
}

// --- Creation ---

TrapSm::Ptr trapSmFactory( CorvaneCentral::ModId modId,
                           Oro::NatTrapConfig::PtrConst const& trapConfig,
                           Corvane::CorvaneTcamGroupManager::Ptr const& groupManager ) {
   TrapSm::Ptr trapSm( new TrapSm( modId, trapConfig, groupManager ) );
   trapSm->hasNotificationActiveIs( true );
   return trapSm;
}

TrapSm::Ptr TrapSmIs( CorvaneCentral::ModId modId,
                      Oro::NatTrapConfig::PtrConst const& trapConfig,
                      Corvane::CorvaneTcamGroupManager::Ptr const& groupManager ) {
   return trapSmFactory( modId, trapConfig, groupManager );
}

}  // namespace CorvaneNat
