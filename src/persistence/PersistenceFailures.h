#pragma once

#include "async/Failure.h"

namespace tomekeeper {

// The per-book stores fail differently on purpose; each table of cases is the
// behaviour callers see.
TOMEKEEPER_FAILURE(PublicationStateRepositoryFailure, invalidFingerprint);
TOMEKEEPER_FAILURE(ReadingPositionPersistenceFailure, corruptStore, cannotRead, cannotWrite);
TOMEKEEPER_FAILURE(BookmarkPersistenceFailure, invalidStore, unsupportedSchema, cannotWrite);
TOMEKEEPER_FAILURE(AnnotationPersistenceFailure, corruptStore, unsupportedSchema, cannotWrite,
                   invalidFingerprint);

// The global preference stores share one shape of failure.
TOMEKEEPER_FAILURE(TypographyPreferencesPersistenceFailure, corruptStore, unsupportedSchema,
                   cannotWrite);
TOMEKEEPER_FAILURE(ReadingThemePersistenceFailure, corruptStore, unsupportedSchema, cannotWrite);
TOMEKEEPER_FAILURE(ReadingModePersistenceFailure, corruptStore, unsupportedSchema, cannotWrite);
TOMEKEEPER_FAILURE(PageLayoutPersistenceFailure, corruptStore, unsupportedSchema, cannotWrite);
TOMEKEEPER_FAILURE(ScrolledContentWidthPersistenceFailure, corruptStore, unsupportedSchema,
                   cannotWrite);

}  // namespace tomekeeper
