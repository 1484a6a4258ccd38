// The web view's media engine reads no scheme of the application's: the audio and video of a
// section are read over the scheme and given to their elements as blob URLs of the section's own
// window, which go away with its document.
import { resolveURL } from './hrefs';

type BlobLoader = (url: string) => Promise<Blob>;

// Gives each audio, video and source element of `doc` whose address lies in the publication a
// blob of its file. A file that cannot be read is left as written: the element shows its error.
export async function attachMediaSources(doc: Document, sectionURL: string, publicationRoot: string, loadBlob: BlobLoader): Promise<void> {
  const view = doc.defaultView;
  if (view === null) return;
  const elements = Array.from(doc.querySelectorAll('audio[src], video[src], source[src]'));
  await Promise.all(
    elements.map(async (element) => {
      let url: string;
      try {
        url = resolveURL(element.getAttribute('src') as string, sectionURL);
      } catch {
        return;
      }
      if (!url.startsWith(publicationRoot)) return;
      try {
        const blob = await loadBlob(url);
        element.setAttribute('src', view.URL.createObjectURL(blob));
      } catch {
        return;
      }
      // A source element counts only when its media element looks again.
      const media = element.localName === 'source' ? element.parentElement : element;
      if (media !== null && typeof (media as HTMLMediaElement).load === 'function') (media as HTMLMediaElement).load();
    }),
  );
}
