// Reads publication resources over the scheme. XMLHttpRequest is used because it reaches custom
// schemes of the same origin in WebKit where fetch may not.
export type TextLoader = (url: string) => Promise<string>;

export const loadText: TextLoader = (url) =>
  new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open('GET', url, true);
    request.responseType = 'text';
    request.overrideMimeType('text/plain; charset=utf-8');
    request.onload = () => {
      // Custom schemes answer with status 200; 0 is what some engines report for them as well.
      if (request.status === 200 || request.status === 0) resolve(request.responseText);
      else reject(new Error(`status ${request.status} for ${url}`));
    };
    request.onerror = () => reject(new Error(`could not read ${url}`));
    request.send();
  });

export type BinaryLoader = (url: string) => Promise<ArrayBuffer>;

export const loadBinary: BinaryLoader = (url) =>
  new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open('GET', url, true);
    request.responseType = 'arraybuffer';
    request.onload = () => {
      if ((request.status === 200 || request.status === 0) && request.response instanceof ArrayBuffer) resolve(request.response);
      else reject(new Error(`status ${request.status} for ${url}`));
    };
    request.onerror = () => reject(new Error(`could not read ${url}`));
    request.send();
  });
