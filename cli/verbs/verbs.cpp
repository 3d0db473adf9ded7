#include "verbs/verbs.h"

namespace cli {

// Each lies in the file of its name.
Verb AdviseVerb();
Verb ApmVerb();
Verb AttributeVerb();
Verb ConfigVerb();
Verb CreateVerb();
Verb DeleteVerb();
Verb DoctorVerb();
Verb ExpandVerb();
Verb FilestatVerb();
Verb FlushVerb();
Verb KnobVerb();
Verb ListVerb();
Verb LoadVerb();
Verb MemoryVerb();
Verb MetricsVerb();
Verb ModulesVerb();
Verb NotifyVerb();
Verb PinVerb();
Verb ProbeVerb();
Verb ReportVerb();
Verb SerialsVerb();
Verb SizeVerb();
Verb SsdVerb();
Verb StateVerb();
Verb StatsVerb();
Verb StatusVerb();
Verb TopVerb();
Verb UnloadVerb();
Verb WipeVerb();

std::vector<Verb> AllVerbs() {
    return {CreateVerb(),  ListVerb(),     StatusVerb(),  DoctorVerb(), ReportVerb(),    AdviseVerb(),
            StatsVerb(),   TopVerb(),      MetricsVerb(), LoadVerb(),   UnloadVerb(),    FlushVerb(),
            DeleteVerb(),  ExpandVerb(),   KnobVerb(),    StateVerb(),  AttributeVerb(), ConfigVerb(),
            ModulesVerb(), WipeVerb(),     SizeVerb(),    MemoryVerb(), ProbeVerb(),     SsdVerb(),
            PinVerb(),     FilestatVerb(), SerialsVerb(), NotifyVerb(), ApmVerb()};
}

}  // namespace cli
