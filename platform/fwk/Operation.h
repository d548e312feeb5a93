#pragma once

// The generic operation interface: tools invoke an operation of an entity by name.
//
// An entity offers an operation under its path (a name of the entity's choosing, unique
// in the process, e.g. "corvanenat/natWorkerSm/1") and the operation's name; a tool such
// as a simulator or a debugging shell invokes it knowing only the two names. An entity
// withdraws its operations before it goes (OperationOffer does so on destruction).

#include <functional>
#include <string>
#include <vector>

namespace Fwk {

typedef std::function<void()> Operation;

// Offers `operation` as `name` of the entity at `path` (replacing an earlier offer).
void operationIs( std::string const& path, std::string const& name, Operation operation );
// Withdraws every operation offered under `path`.
void operationDelAll( std::string const& path );
// Runs an operation; false, with a text saying what is missing, when it is not offered.
bool operationInvoke( std::string const& path, std::string const& name,
                      std::string* error );
// "path name" of every offered operation, sorted.
std::vector<std::string> operations();

// Offers operations under one path for the life of the object.
class OperationOffer {
public:
   explicit OperationOffer( std::string path ) : path_( std::move( path ) ) {}
   ~OperationOffer() { operationDelAll( path_ ); }
   OperationOffer( OperationOffer const& ) = delete;
   OperationOffer& operator=( OperationOffer const& ) = delete;

   std::string const& path() const { return path_; }
   void operationIs( std::string const& name, Operation operation ) {
      Fwk::operationIs( path_, name, std::move( operation ) );
   }

private:
   std::string path_;
};

}  // namespace Fwk
