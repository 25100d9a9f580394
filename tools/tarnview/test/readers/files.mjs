// Files for a browser that must not fetch anything else: a few folders and texts on a port of this
// machine.
import { createServer } from "node:http";
import { readFile } from "node:fs/promises";
import { extname, join, normalize } from "node:path";

const kinds = { ".html": "text/html", ".js": "text/javascript", ".css": "text/css",
                ".json": "application/json", ".png": "image/png", ".wasm": "application/wasm" };

/** Serves the folder, and below it the files named in `more` (name: path). Returns what ends it. */
export async function serve(folder, more = {}) {
  const server = createServer(async (request, response) => {
    const name = decodeURIComponent(new URL(request.url, "http://localhost").pathname).slice(1);
    try {
      const text = await readFile(more[name] ?? join(folder, normalize("/" + name)));
      response.writeHead(200, { "Content-Type": kinds[extname(name)] ?? "text/plain" });
      response.end(text);
    } catch {
      response.writeHead(404).end();
    }
  });
  await new Promise(resolve => server.listen(0, "127.0.0.1", resolve));
  return { url: `http://127.0.0.1:${server.address().port}/`,
           close: () => new Promise(resolve => { server.close(resolve); server.closeAllConnections(); }) };
}
