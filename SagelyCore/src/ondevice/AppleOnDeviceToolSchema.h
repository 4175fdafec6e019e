// The parameters of a host action as the on-device bridge builds them into the framework's
// run-time schema (DynamicGenerationSchema). The checking happens here, so the Swift side only
// maps one node to one initializer:
//
//   {"kind":"object","name":N,"description":D?,"properties":[
//       {"name":P,"description":D?,"optional":B,"schema":NODE}, …]}   →
//       init(name:description:properties:)
//   {"kind":"choices","name":N,"description":D?,"choices":["a",…]}    →
//   init(name:description:anyOf:)
//   {"kind":"array","items":NODE}                                     → init(arrayOf:)
//   {"kind":"string"|"integer"|"number"|"boolean"}                    → init(type:) with String,
//                                                                      Int, Double, Bool
//
// Objects and choices carry unique names (the action's name, then the property path), since the
// framework refuses two types of one name in a schema.
#pragma once

#include <nlohmann/json.hpp>

#include <string_view>

namespace sagely::detail {

/// The description of `parameters` (a JSON object schema a CoachHostAction accepted) for the
/// action `actionName`. Throws std::invalid_argument naming what has no on-device counterpart:
/// a node without a type (other than an enum of strings), an enum that is not all strings, an
/// array without items, a root that is not an object. Annotations ("title", "default",
/// "examples") and "additionalProperties" are left out: generated content never holds keys the
/// schema does not name.
nlohmann::json onDeviceSchemaDescription(std::string_view actionName,
                                         const nlohmann::json& parameters);

}  // namespace sagely::detail
