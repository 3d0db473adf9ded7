// The groups of comparisons. Each function registers one; nothing is set up before it is run.
#pragma once

namespace bench {

void RegisterTool();  // first: the caches that others make would be too many for it
void RegisterStatus();
void RegisterKnobs();
void RegisterConfig();
void RegisterWalk();
void RegisterDevice();
void RegisterSsdSupport();
void RegisterSizing();
void RegisterSizingAccuracy();

// Does the statistics of a volume and prints the most memory that this process needed. For main alone.
int PrintPeakOfWalk(const char* volumePath);

// The same for the sampled curve of a trace.
int PrintPeakOfSurvey(const char* tracePath);

}  // namespace bench
