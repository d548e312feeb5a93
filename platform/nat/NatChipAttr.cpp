#include "platform/nat/NatChipAttr.h"

namespace CorvaneNat {

namespace {

NatChipAttr& processNatChipAttr() {
   static NatChipAttr attr;
   return attr;
}

}  // namespace

NatChipAttr const& getNatChipAttr() {
   return processNatChipAttr();
}

void natChipAttrIs( NatChipAttr const& attr ) {
   processNatChipAttr() = attr;
}

}  // namespace CorvaneNat
