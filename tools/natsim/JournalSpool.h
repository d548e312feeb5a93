#pragma once

// The part of the SDK journal a run keeps for its result, and where it waits.
//
// A JournalFilter says which calls are kept: all of them (the default), none, or those
// named in a list ("getEntry,bcm_field_qualify_*": a name ending in "*" stands for every
// call that starts with the rest). Calls that are not kept are still counted.
//
// A JournalSpool holds the kept records as JSON text, one record per line, in an
// anonymous temporary file, so that a run of a million calls keeps none of them in
// memory; records gather in a buffer of 64 KiB at most on their way there. copyTo()
// writes them out as the elements of a JSON array.

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

namespace natsim {

class JournalFilter {
public:
   // Keeps every call.
   JournalFilter() = default;
   static JournalFilter none();
   // "all", "none", or a comma-separated list of call names, each a name the journal
   // records or a prefix followed by "*". False, with the reason, for anything else.
   static bool parse( std::string const& text, JournalFilter* out, std::string* error );

   bool keepsNone() const { return !all_ && names_.empty(); }
   bool keeps( std::string const& call ) const;

private:
   bool all_ = true;
   // Whole names, and prefixes (kept without their "*").
   std::vector<std::string> names_;
   std::vector<std::string> prefixes_;
};

class JournalSpool {
public:
   JournalSpool();
   ~JournalSpool();
   JournalSpool( JournalSpool const& ) = delete;
   JournalSpool& operator=( JournalSpool const& ) = delete;

   // Appends one record's JSON text.
   void append( std::string const& record );
   std::size_t records() const { return records_; }
   // False once a write to the temporary file has failed (the disk is full, say).
   bool ok() const;
   // Writes the records, separated by ",\n", without brackets.
   void copyTo( std::ostream& out ) const;

private:
   // Writes the buffered records to the file.
   void flush() const;

   std::FILE* file_ = nullptr;
   std::size_t records_ = 0;
   mutable std::string pending_;
};

}  // namespace natsim
