#pragma once

// The outcome of an Orrery mount.
//
// A mount group reports one MountStatus to its mounter: mountSuccess() when every mount
// of the group held, else the status of the first one that did not. Statuses are plain
// values compared with == and printed with stringValue().

#include <iosfwd>
#include <string>

namespace Orrery {

class MountStatus {
public:
   enum Code {
      success,
      // The mount has not been checked yet (its group is open or waits for the loop).
      pending,
      // Mode "r" or "w": nothing is published at the path.
      entityMissing,
      // Something of another type name is published at the path.
      typeMismatch,
      // Mode "wc": the type factory does not know the type name, so nothing was made.
      typeUnknown,
   };

   constexpr MountStatus() = default;
   constexpr explicit MountStatus( Code code ) : code_( code ) {}

   Code code() const { return code_; }
   // "success", "entity missing", "type mismatch", ...
   std::string stringValue() const;

   bool operator==( MountStatus o ) const { return code_ == o.code_; }
   bool operator!=( MountStatus o ) const { return code_ != o.code_; }

private:
   Code code_ = success;
};

inline MountStatus mountSuccess() {
   return MountStatus( MountStatus::success );
}

std::ostream& operator<<( std::ostream& os, MountStatus status );

}  // namespace Orrery
