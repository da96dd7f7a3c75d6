#pragma once

#include "model/finding.h"
#include "qn_poly/poly_findings.h"

namespace sds_model {

/// The program's code for what the host's checker found.
FindingCode to_finding_code(PolyFindingCode code, PolyArray array);

/// Adds the checker's findings; describe(code, place) returns the FirstCase of one, in the words of its file or arrays.
template <class Describe>
void add_mesh_findings(const PolyFindings& found, Findings& findings, Describe&& describe) {
    found.for_each([&](PolyFindingCode code) {
        const PolyPlace& place = found.first(code);
        findings.record(
            to_finding_code(code, place.array), [&] { return describe(code, place); }, found.count(code));
    });
}

}  // namespace sds_model
