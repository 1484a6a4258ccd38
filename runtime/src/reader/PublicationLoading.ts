// The steps of opening a publication that read it rather than show it: its package document and
// restored fonts, the answer to the open, and what a section's document gets before its first
// layout.
import { BridgeRequestError } from '../bridge/BridgeRequestError';
import type { OpenPublicationResult, PublicationDescriptor } from '../bridge/records';
import type { SectionView } from '../layout/SectionView';
import { containerRootURL } from '../publication/hrefs';
import { applyImageFallbacks } from '../publication/ImageFallbacks';
import { attachMediaSources } from '../publication/MediaSources';
import { ObfuscatedFonts } from '../publication/ObfuscatedFonts';
import { parsePackageDocument, type PackageDocument, type PageProgression, type SpineItem } from '../publication/PackageDocument';
import type { BinaryLoader, BlobLoader, TextLoader } from '../publication/ResourceLoader';
import { insertSkippedItemNotice } from './SkippedItemNotice';

export interface LoadedPublication {
  packageDocument: PackageDocument;
  fonts: ObfuscatedFonts | undefined;
}

// Reads and parses the package document, and restores the book's obfuscated fonts when binary
// resources can be read. Throws BridgeRequestError(package-unreadable or package-invalid).
export async function loadPublication(descriptor: PublicationDescriptor, loadText: TextLoader, loadBinary: BinaryLoader | undefined): Promise<LoadedPublication> {
  let packageText: string;
  try {
    packageText = await loadText(descriptor.packageURL);
  } catch (error) {
    throw new BridgeRequestError('package-unreadable', 'the package document could not be read', String(error));
  }
  let packageDocument: PackageDocument;
  try {
    packageDocument = parsePackageDocument(packageText, descriptor.packageURL, descriptor.resourceBaseURL);
  } catch (error) {
    throw new BridgeRequestError('package-invalid', 'the package document could not be parsed', String(error));
  }
  let fonts: ObfuscatedFonts | undefined;
  if (loadBinary !== undefined) {
    const identifiers = { uniqueIdentifier: packageDocument.uniqueIdentifierText, identifiers: packageDocument.identifiers };
    fonts = await ObfuscatedFonts.load(containerRootURL(descriptor.packageURL), identifiers, loadText, loadBinary);
  }
  return { packageDocument, fonts };
}

// The answer to an open that showed the spine item `first`.
export function openResult(packageDocument: PackageDocument, first: number, progression: PageProgression): OpenPublicationResult {
  const result: OpenPublicationResult = {
    authors: packageDocument.creators,
    spineItemCount: packageDocument.spine.length,
    initialResourceURL: (packageDocument.spine[first] as SpineItem).url,
    pageProgressionDirection: progression,
  };
  if (packageDocument.title !== undefined) result.title = packageDocument.title;
  if (packageDocument.titleDirection !== undefined) result.titleDirection = packageDocument.titleDirection;
  if (packageDocument.creatorsDirection !== undefined) result.authorsDirection = packageDocument.creatorsDirection;
  if (packageDocument.coverURL !== undefined) result.coverResourceURL = packageDocument.coverURL;
  return result;
}

// What a section's freshly loaded document gets before its first layout: images of undrawn types
// replaced by their fallbacks, notices of the items left out around it, and its audio and video
// read as blobs (not awaited: the text shows while the media is read).
export async function prepareSectionDocument(
  view: SectionView,
  item: SpineItem,
  packageDocument: PackageDocument,
  descriptor: PublicationDescriptor,
  loadBlob: BlobLoader | undefined,
): Promise<void> {
  await applyImageFallbacks(view.document, item.url, packageDocument.imageFallbacks);
  if (!view.fixedLayout) {
    insertSkippedItemNotice(view.document, item.skippedBefore, 'start');
    if (item.index === packageDocument.spine.length - 1) insertSkippedItemNotice(view.document, packageDocument.skippedAtEnd, 'end');
  }
  if (loadBlob !== undefined) void attachMediaSources(view.document, item.url, containerRootURL(descriptor.packageURL), loadBlob);
}
