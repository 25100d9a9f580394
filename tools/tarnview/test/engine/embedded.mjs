// An engine of these days, embedded, behind as much HTTP as tarnview speaks: the same statements run on
// it as on a server. Usage: node embedded.mjs FOLDER_OF_NODE_MODULES PORT_FILE
import http from "node:http";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import { createRequire } from "node:module";

const [modules, portFile] = process.argv.slice(2);
const require = createRequire(path.join(path.resolve(modules), "node_modules", "x.js"));
const { Session } = require("chdb");
const folder = fs.mkdtempSync(path.join(os.tmpdir(), "engine-"));
const session = new Session(path.join(folder, "data"));
process.on("exit", () => fs.rmSync(folder, { recursive: true, force: true }));
process.on("SIGTERM", () => process.exit(0));
let number = 0;

async function answer(url, body) {
    const database = url.searchParams.get("database");
    if (database) {
        await session.queryAsync(`USE ${database}`);
    }
    const insert = url.searchParams.get("query");
    if (insert) {
        // A file stands for the body of the request.
        const file = path.join(folder, `${++number}.native`);
        fs.writeFileSync(file, body);
        const [, table, columns] = /^INSERT INTO (\w+) \((.*)\) FORMAT Native$/.exec(insert);
        await session.queryAsync(
            `INSERT INTO ${table} (${columns}) SELECT ${columns} FROM file('${file}', Native)`);
        fs.rmSync(file);
        return "";
    }
    const text = body.toString();
    const [, statement, format] = /^([^]*?)(?: FORMAT (\w+))?$/.exec(text);
    const result = await session.queryAsync(statement, { format: format ?? "TabSeparated" });
    return Buffer.from(result.bytes());
}

http.createServer(async (request, response) => {
    const parts = [];
    for await (const part of request) {
        parts.push(part);
    }
    try {
        const url = new URL(request.url, "http://engine");
        response.end(await answer(url, Buffer.concat(parts)));
    } catch (error) {
        response.writeHead(500);
        response.end(String(error.message));
    }
}).listen(0, "127.0.0.1", function () {
    fs.writeFileSync(`${portFile}.new`, String(this.address().port));
    fs.renameSync(`${portFile}.new`, portFile);
});
