// KynKinds: the kind names that object views put into KynHelperObj::kinds.
//
// One constant per view class, holding the class's kind name character for character. Every
// translation unit that includes this header gets its own copy of the strings (namespace-scope
// const objects have internal linkage), so no module depends on another's static
// initialisation. Hosts compare a view's kinds with these through KynHelperObj::isA.
#ifndef KYN_KINDS_H
#define KYN_KINDS_H

#include <string>

namespace Kyn {

const std::string helperObj("helperObj");          // every view
const std::string transform("transform");          // TransformKynObj
const std::string locator("locator");              // LocatorKynObj
const std::string lxcoordsystem("lxcoordsystem");  // LxCoordSystemKynObj
const std::string geometry("geometry");            // GeometryKynObj and the kinds below it
const std::string mesh("mesh");                    // MeshKynObj
const std::string nurbssurface("nurbssurface");    // NurbsSurfaceKynObj
const std::string nurbscurve("nurbscurve");        // NurbsCurveKynObj

}  // namespace Kyn

#endif
