#include <gtest/gtest.h>

#include "SessionHarness.h"

namespace tomekeeper::testing {
namespace {

using State = ReaderSession::State;

json selectionJSON(const Locator& locator, const std::string& text) {
  return {{"selection", {{"locator", json(locator)}, {"selectedText", text}}}};
}

std::string repeated(const std::string& piece, std::size_t times) {
  std::string text;
  for (std::size_t index = 0; index < times; ++index) text += piece;
  return text;
}

class ReaderSessionAnnotationsTest : public ::testing::Test {
 protected:
  void SetUp() override { harness.create(); }

  void openReady() { ASSERT_EQ(harness.open(), std::nullopt); }

  ReaderSession& session() { return *harness.session; }

  void offerSelection(const std::string& text) {
    harness.runtime().handlers["currentSelection"] = [text](const json&) {
      return RuntimeAnswer::result(selectionJSON(locatorAt(1, "/6/4!/4/2,/1:0,/1:9"), text));
    };
  }

  // The page selects `text`, and the session has taken the selection.
  void select(const std::string& text) {
    offerSelection(text);
    harness.runtime().sendEvent("selectionAvailabilityChanged",
                                {{"available", true}, {"rect", nullptr}});
    ASSERT_TRUE(iterateUntil([&] { return session().currentTextSelection().value().has_value(); }));
  }

  // Opens the book with one stored highlight and gives it back.
  Annotation openWithHighlight(std::optional<std::string> note = std::nullopt) {
    const Annotation highlight = SessionHarness::annotation("text", std::move(note));
    harness.annotationStore->stored = {highlight};
    openReady();
    return highlight;
  }

  // The same, with a highlight that the page cannot place.
  Annotation openWithUnresolvedHighlight() {
    harness.runtime().handlers["addAnnotation"] = [](const json&) {
      return RuntimeAnswer::failure("anchor-not-found");
    };
    return openWithHighlight();
  }

  SessionHarness harness;
};

TEST_F(ReaderSessionAnnotationsTest, AddingAHighlightDrawsStoresAndClearsTheSelection) {
  openReady();
  select("a phrase");

  runToEnd(session().addHighlight());

  ASSERT_EQ(harness.annotationStore->stored.size(), 1u);
  const Annotation& stored = harness.annotationStore->stored[0];
  EXPECT_EQ(stored.selectedText, "a phrase");
  EXPECT_EQ(stored.bookFingerprint, std::string(kFingerprint));
  EXPECT_EQ(stored.color, AnnotationColor::yellow);
  EXPECT_EQ(stored.note, std::nullopt);
  EXPECT_EQ(stored.createdAt, stored.modifiedAt);
  const std::vector<json> drawn = harness.runtime().payloads("addAnnotation");
  ASSERT_EQ(drawn.size(), 1u);
  EXPECT_EQ(drawn[0]["annotation"]["id"], stored.id.string());
  EXPECT_FALSE(drawn[0]["annotation"].contains("createdAt"));
  EXPECT_FALSE(drawn[0]["annotation"].contains("bookFingerprint"));
  EXPECT_EQ(session().annotations().value(), harness.annotationStore->stored);
  EXPECT_EQ(session().currentTextSelection().value(), std::nullopt);
  EXPECT_EQ(session().currentSelectionRect().value(), std::nullopt);
}

TEST_F(ReaderSessionAnnotationsTest, NoSelectionAddsNothingAndSaysNothing) {
  openReady();
  runToEnd(session().addHighlight());
  EXPECT_EQ(harness.runtime().count("addAnnotation"), 0u);
  EXPECT_EQ(session().error().value(), std::nullopt);
}

TEST_F(ReaderSessionAnnotationsTest, TooLongSelectionShowsTheRuntimesLimitMessage) {
  openReady();
  harness.runtime().handlers["currentSelection"] = [](const json&) {
    return RuntimeAnswer::failure("selection-too-long");
  };

  const std::optional<ReaderError> failure = failureOf(session().addHighlight());

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->userMessage(), "Select fewer than 2000 characters to create a highlight.");
  EXPECT_EQ(session().error().value(), failure);
  EXPECT_EQ(harness.runtime().count("addAnnotation"), 0u);
}

TEST_F(ReaderSessionAnnotationsTest, HighlightTheRuntimeRefusesIsNotStoredAndTheSelectionStays) {
  openReady();
  select("unplaceable");
  harness.runtime().handlers["addAnnotation"] = [](const json&) {
    return RuntimeAnswer::failure("anchor-not-found");
  };

  ASSERT_TRUE(failureOf(session().addHighlight()).has_value());

  EXPECT_TRUE(harness.annotationStore->stored.empty());
  EXPECT_TRUE(session().annotations().value().empty());
  EXPECT_TRUE(session().currentTextSelection().value().has_value());
  EXPECT_EQ(harness.runtime().count("removeAnnotation"), 0u);
}

TEST_F(ReaderSessionAnnotationsTest, HighlightTheStoreRefusesIsRemovedFromThePageAgain) {
  openReady();
  offerSelection("unsaveable");
  harness.annotationStore->writeFailure = AnnotationPersistenceFailure::cannotWrite;

  const std::optional<ReaderError> failure = failureOf(session().addHighlight());

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->kind(), ReaderErrorKind::persistenceFailed);
  EXPECT_EQ(session().error().value(), failure);
  const std::vector<json> drawn = harness.runtime().payloads("addAnnotation");
  const std::vector<json> removed = harness.runtime().payloads("removeAnnotation");
  ASSERT_EQ(drawn.size(), 1u);
  ASSERT_EQ(removed.size(), 1u);
  EXPECT_EQ(removed[0]["id"], drawn[0]["annotation"]["id"]);
  EXPECT_GT(harness.runtime().lastIndexOf("removeAnnotation"),
            harness.runtime().lastIndexOf("addAnnotation"));
  EXPECT_TRUE(session().annotations().value().empty());
}

TEST_F(ReaderSessionAnnotationsTest, WithoutStoreTheHighlightLivesInTheList) {
  SessionHarness bare;
  bare.create(StorePresence::none);
  ASSERT_EQ(bare.open(), std::nullopt);
  bare.runtime().handlers["currentSelection"] = [](const json&) {
    return RuntimeAnswer::result(selectionJSON(locatorAt(0, "/6/2!/4/2,/1:0,/1:4"), "word"));
  };

  runToEnd(bare.session->addHighlight());
  ASSERT_EQ(bare.session->annotations().value().size(), 1u);
  const Annotation added = bare.session->annotations().value()[0];

  bare.host->onRemoveAnnotation(added.id);
  ASSERT_TRUE(iterateUntil([&] { return bare.session->annotations().value().empty(); }));
  EXPECT_EQ(bare.runtime().count("removeAnnotation"), 1u);
  EXPECT_EQ(bare.session->error().value(), std::nullopt);
}

TEST_F(ReaderSessionAnnotationsTest, OutdatedSelectionReplyIsIgnored) {
  openReady();
  harness.runtime().handlers["currentSelection"] = [](const json&) {
    return RuntimeAnswer::silence();
  };
  harness.runtime().sendEvent("selectionAvailabilityChanged",
                              {{"available", true}, {"rect", nullptr}});
  ASSERT_TRUE(iterateUntil([&] { return harness.runtime().count("currentSelection") == 1; }));
  const std::string firstID = harness.host->transport->envelopes.back()["id"];

  // The selection moves on while the first request waits; the first reply comes late.
  offerSelection("newer");
  harness.runtime().sendEvent("selectionAvailabilityChanged",
                              {{"available", false}, {"rect", nullptr}});
  harness.host->bridge()->completeRequest(
      *Uuid::fromString(firstID), json(selectionJSON(locatorAt(1, "/6/4!/4/2,/1:0,/1:3"), "old")));
  // The sentinel: a request sent after the late reply, whose own reply comes after it.
  runToEnd(harness.host->bridge()->currentLocator());

  EXPECT_EQ(session().currentTextSelection().value(), std::nullopt);
  EXPECT_EQ(harness.runtime().count("currentSelection"), 1u);
}

TEST_F(ReaderSessionAnnotationsTest, NoteOfFourThousandGraphemeClustersSavesAndOneMoreFails) {
  const Annotation highlight = openWithHighlight();
  // Each "e" with a combining acute accent is two code points but one character to a reader.
  const std::string accented = "e\xCC\x81";
  const std::string atLimit = repeated(accented, 4000) + "  \n";

  runToEnd(session().saveNote(highlight, atLimit));
  ASSERT_EQ(harness.annotationStore->stored[0].note, repeated(accented, 4000));
  EXPECT_EQ(session().annotations().value()[0].note, repeated(accented, 4000));
  EXPECT_GE(session().annotations().value()[0].modifiedAt, highlight.modifiedAt);

  const std::optional<ReaderError> failure =
      failureOf(session().saveNote(highlight, repeated(accented, 4001)));
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->kind(), ReaderErrorKind::unsupportedFeature);
  EXPECT_EQ(failure->userMessage(), "Notes can contain up to 4000 characters.");
  EXPECT_EQ(failure->diagnosticCause(), "annotation-note-too-long");
  EXPECT_EQ(failure->policy(),
            (ReaderErrorPolicy{true, false, true, ReaderErrorPresentation::inline_}));
  EXPECT_EQ(session().error().value(), failure);
  EXPECT_EQ(harness.annotationStore->stored[0].note, repeated(accented, 4000));
}

TEST_F(ReaderSessionAnnotationsTest, NoteOfOnlyWhitespaceClearsTheNoteAndKeepsTheHighlight) {
  const Annotation highlight = openWithHighlight("an old note");

  runToEnd(session().saveNote(highlight, " \n\t "));

  ASSERT_EQ(harness.annotationStore->stored.size(), 1u);
  EXPECT_EQ(harness.annotationStore->stored[0].note, std::nullopt);
  EXPECT_EQ(session().annotations().value()[0].note, std::nullopt);
  EXPECT_EQ(harness.runtime().count("removeAnnotation"), 0u);
}

TEST_F(ReaderSessionAnnotationsTest, RefusedNoteLeavesTheListAsItWas) {
  const Annotation highlight = openWithHighlight("kept");
  harness.annotationStore->writeFailure = AnnotationPersistenceFailure::cannotWrite;

  ASSERT_TRUE(failureOf(session().saveNote(highlight, "replaced")).has_value());
  EXPECT_EQ(session().annotations().value()[0].note, "kept");
}

TEST_F(ReaderSessionAnnotationsTest, HighlightWithoutNoteIsRemovedAtOnce) {
  const Annotation highlight = openWithHighlight();

  harness.host->onRemoveAnnotation(highlight.id);

  EXPECT_EQ(session().annotationPendingRemoval().value(), std::nullopt);
  ASSERT_TRUE(iterateUntil([&] { return session().annotations().value().empty(); }));
  EXPECT_TRUE(harness.annotationStore->stored.empty());
  EXPECT_EQ(harness.runtime().payloads("removeAnnotation")[0]["id"], highlight.id.string());
}

TEST_F(ReaderSessionAnnotationsTest, HighlightWithNoteWaitsForConfirmation) {
  const Annotation highlight = openWithHighlight("a thought");

  harness.host->onRemoveAnnotation(highlight.id);
  // Waiting for confirmation is what the session does instead of removing.
  ASSERT_TRUE(
      iterateUntil([&] { return session().annotationPendingRemoval().value() == highlight; }));
  EXPECT_EQ(harness.runtime().count("removeAnnotation"), 0u);

  session().cancelAnnotationRemoval();
  EXPECT_EQ(session().annotationPendingRemoval().value(), std::nullopt);
  EXPECT_EQ(harness.annotationStore->stored.size(), 1u);

  harness.host->onRemoveAnnotation(highlight.id);
  runToEnd(session().confirmAnnotationRemoval());
  EXPECT_EQ(session().annotationPendingRemoval().value(), std::nullopt);
  EXPECT_TRUE(harness.annotationStore->stored.empty());
  EXPECT_TRUE(session().annotations().value().empty());
}

TEST_F(ReaderSessionAnnotationsTest, RemovalTheStoreRefusesDrawsTheHighlightAgain) {
  const Annotation highlight = openWithHighlight();
  harness.annotationStore->writeFailure = AnnotationPersistenceFailure::cannotWrite;
  const std::size_t drawnAtOpen = harness.runtime().count("addAnnotation");

  const std::optional<ReaderError> failure = failureOf(session().removeAnnotation(highlight));

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->kind(), ReaderErrorKind::persistenceFailed);
  EXPECT_EQ(session().error().value(), failure);
  EXPECT_EQ(harness.runtime().count("removeAnnotation"), 1u);
  ASSERT_EQ(harness.runtime().count("addAnnotation"), drawnAtOpen + 1);
  EXPECT_EQ(harness.runtime().payloads("addAnnotation").back()["annotation"]["id"],
            highlight.id.string());
  EXPECT_GT(harness.runtime().lastIndexOf("addAnnotation"),
            harness.runtime().lastIndexOf("removeAnnotation"));
  EXPECT_EQ(session().annotations().value(), std::vector<Annotation>{highlight});
  EXPECT_EQ(harness.annotationStore->stored, std::vector<Annotation>{highlight});
}

TEST_F(ReaderSessionAnnotationsTest, RemovalTheRuntimeRefusesLeavesEverything) {
  const Annotation highlight = openWithHighlight();
  harness.runtime().handlers["removeAnnotation"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };

  ASSERT_TRUE(failureOf(session().removeAnnotation(highlight)).has_value());
  EXPECT_EQ(harness.annotationStore->stored.size(), 1u);
  EXPECT_EQ(session().annotations().value().size(), 1u);
}

TEST_F(ReaderSessionAnnotationsTest, RemovalTakesTheIdOutOfTheUnresolvedSet) {
  const Annotation highlight = openWithUnresolvedHighlight();
  ASSERT_EQ(session().unresolvedAnnotationIDs().value(), std::set<Uuid>{highlight.id});

  runToEnd(session().removeAnnotation(highlight));
  EXPECT_TRUE(session().unresolvedAnnotationIDs().value().empty());
}

TEST_F(ReaderSessionAnnotationsTest, ResolutionEventNamesTheUnresolvedIdsInOrder) {
  openReady();
  const Uuid low = *Uuid::fromString("0AAAAAAA-0000-4000-8000-000000000000");
  const Uuid high = *Uuid::fromString("F0000000-0000-4000-8000-000000000000");
  harness.runtime().sendEvent("annotationResolutionChanged",
                              {{"resolvedIDs", json::array()},
                               {"unresolvedIDs", json::array({high.string(), low.string()})}});

  EXPECT_EQ(session().unresolvedAnnotationIDs().value(), (std::set<Uuid>{low, high}));
  ASSERT_TRUE(session().error().value().has_value());
  const ReaderError& error = *session().error().value();
  EXPECT_EQ(error.kind(), ReaderErrorKind::readerRuntimeFailed);
  EXPECT_EQ(error.userMessage(), "A saved highlight could not be shown at its original text.");
  EXPECT_EQ(error.diagnosticCause(),
            "annotation-resolution-event: " + low.string() + "," + high.string());
  EXPECT_EQ(error.policy(),
            (ReaderErrorPolicy{false, false, true, ReaderErrorPresentation::inline_}));
}

TEST_F(ReaderSessionAnnotationsTest, ResolutionEventWithNothingUnresolvedClearsIdsAndSetsNoError) {
  const Annotation highlight = openWithUnresolvedHighlight();
  // The refusal at open already set `error`; an event with nothing unresolved leaves it be.
  const std::optional<ReaderError> before = session().error().value();
  ASSERT_TRUE(before.has_value());
  harness.runtime().sendEvent(
      "annotationResolutionChanged",
      {{"resolvedIDs", json::array({highlight.id.string()})}, {"unresolvedIDs", json::array()}});

  EXPECT_TRUE(session().unresolvedAnnotationIDs().value().empty());
  EXPECT_EQ(session().error().value(), before);
}

TEST_F(ReaderSessionAnnotationsTest, GoingToAHighlightJumpsSavesAndPulses) {
  const Annotation highlight = openWithHighlight();

  runToEnd(session().goToAnnotation(highlight));

  EXPECT_EQ(harness.runtime().payloads("goTo").back()["locator"].get<Locator>(), highlight.locator);
  EXPECT_EQ(harness.positions->saves.back(), highlight.locator);
  EXPECT_EQ(harness.runtime().payloads("pulseAnnotation")[0]["id"], highlight.id.string());
}

TEST_F(ReaderSessionAnnotationsTest, HighlightOfAnotherBookIsNotJumpedTo) {
  openReady();
  Annotation foreign = SessionHarness::annotation("text");
  foreign.bookFingerprint = std::string(64, 'f');
  const std::size_t goTos = harness.runtime().count("goTo");

  runToEnd(session().goToAnnotation(foreign));
  EXPECT_EQ(harness.runtime().count("goTo"), goTos);
}

TEST_F(ReaderSessionAnnotationsTest, ContextMenuIsPresentedOnlyForAKnownHighlight) {
  const Annotation withNote = openWithHighlight("");
  const std::int64_t revision = session().selectionRevision();

  harness.runtime().sendEvent("annotationContextMenuRequested",
                              {{"id", Uuid::random().string()}, {"x", 1.0}, {"y", 2.0}});
  EXPECT_TRUE(harness.host->menus.empty());
  EXPECT_EQ(session().selectionRevision(), revision);

  harness.runtime().sendEvent("annotationContextMenuRequested",
                              {{"id", withNote.id.string()}, {"x", 1.0}, {"y", 2.0}});
  ASSERT_EQ(harness.host->menus.size(), 1u);
  // A note that is present counts, whatever its text.
  EXPECT_EQ(harness.host->menus[0].notePresence, AnnotationNotePresence::withNote);
  EXPECT_EQ(session().selectionRevision(), revision + 1);

  harness.host->onEditAnnotation(harness.host->menus[0].request);
  EXPECT_EQ(session().noteEditingRequest().value(), harness.host->menus[0].request);
}

}  // namespace
}  // namespace tomekeeper::testing
