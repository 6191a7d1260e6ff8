// Slot 24: the extraction and test driver, run with the archiver as host.
#include "container/extract_driver.h"

#include "archiver/lha_archiver.h"

HRESULT KzLhaArchiver::ExtractItems(const KzList* selection, intptr_t selectionArg,
                                    intptr_t directoryArg, uint32_t finishArg) {
  return kz::RunExtractDriver<KzLhaArchiver, PathString>(*this, selection, selectionArg,
                                                          directoryArg, finishArg);
}
