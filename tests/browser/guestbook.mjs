// Walks a visitor through the example guestbook in headless Chromium, as
// served by one web server: the front page (and its charset), signing it
// (with markup and UTF-8 in what is typed; the answer redirects to the
// front page), the author cookie coming back, an upload checked byte for
// byte on disk, the error page (500), a missing page (404) and HEAD
// requests. A failed step leaves a screenshot SERVER-STEP.png in VORN_SHOTS.
// Environment: VORN_URL (the front page), VORN_TMP (the site's TMP_DIR),
// VORN_SERVER (a name for the messages), VORN_SHOTS, VORN_PROFILE (a fresh
// directory for the browser's profile).
import { chromium } from 'playwright-core';
import { randomBytes } from 'node:crypto';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';

const front = process.env.VORN_URL;
const server = process.env.VORN_SERVER;
const base = new URL('.', front).href;   // .../vorn/
const author = 'Zoë 日本';
const message = '<b>Bold</b> & "quoted"; 日本語 ok';

const context = await chromium.launchPersistentContext(process.env.VORN_PROFILE, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
           '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});
context.setDefaultTimeout(10000);
const page = context.pages()[0] ?? await context.newPage();

let failed = 0;
async function step(name, body) {
    try {
        await body();
        console.log(`ok   ${server} ${name}`);
    } catch (err) {
        failed++;
        console.log(`FAIL ${server} ${name}: ${err.message.split('\n')[0]}`);
        await page.screenshot({ path: join(process.env.VORN_SHOTS, `${server}-${name}.png`),
                                fullPage: true }).catch(() => {});
    }
}
function expect(what, got, want) {
    if (got !== want)
        throw new Error(`${what}: got ${JSON.stringify(got)}, want ${JSON.stringify(want)}`);
}
const text = (selector) => page.locator(selector).first().textContent();
const link = (name) => page.getByRole('link', { name, exact: true }).click();

await step('1-front-page', async () => {
    const response = await page.goto(front);
    expect('status', response.status(), 200);
    expect('content type', response.headers()['content-type'], 'text/html; charset=utf-8');
    expect('title', await page.title(), 'Guestbook');
    expect('charset', await page.evaluate(() => document.characterSet), 'UTF-8');
    expect('entries', await page.locator('table tr:has(td)').count(), 3);
    // the server sends /vorn/ on to the front page
    await page.goto(base);
    expect('/vorn/ lands on', page.url(), front);
});

await step('2-sign', async () => {
    await page.goto(front);
    await link('Sign it');
    expect('sign page', page.url(), base + 'sign.html');
    await page.locator('input[name=author]').fill(author);
    await page.locator('textarea[name=message]').fill(message);
    const posted = page.waitForResponse((r) => r.request().method() === 'POST');
    await page.getByRole('button', { name: 'Sign' }).click();
    const answer = await posted;
    expect('answer to the POST', answer.status(), 303);
    expect('redirected to', answer.headers()['location'], 'index.html');
    await page.waitForURL(front);
    expect('entries after signing', await page.locator('table tr:has(td)').count(), 4);
});

await step('3-entry-escaped', async () => {
    await link('Guestbook');
    const row = page.locator('table tr:has(td)').first();
    expect('author', await row.locator('td').nth(1).textContent(), author);
    expect('message', await row.locator('td').nth(2).textContent(), message);
    expect('markup in the entry', await row.locator('b').count(), 0);
    expect('entries', await page.locator('table tr:has(td)').count(), 4);
});

await step('4-cookie', async () => {
    const cookies = await context.cookies(base);
    const cookie = cookies.find((c) => c.name === 'author');
    expect('author cookie', cookie && decodeURIComponent(cookie.value), author);
    await page.goto(front);
    await link('Sign it');
    expect('name offered again', await page.locator('input[name=author]').inputValue(), author);
});

await step('5-upload', async () => {
    const data = randomBytes(200 * 1024);   // more than one 64 KB window
    await page.goto(front);
    await link('Send a file');
    await page.locator('input[type=file]').setInputFiles(
        { name: 'a & b.bin', mimeType: 'application/octet-stream', buffer: data });
    await page.getByRole('button', { name: 'Send' }).click();
    const stored = await text('code');
    if (!stored.startsWith('a & b.bin..'))
        throw new Error(`stored as ${JSON.stringify(stored)}`);
    expect('bytes on disk', readFileSync(join(process.env.VORN_TMP, stored)).equals(data), true);
});

await step('6-error-page', async () => {
    await page.goto(front);
    await link('Send a file');
    const posted = page.waitForResponse((r) => r.request().method() === 'POST');
    await page.getByRole('button', { name: 'Send' }).click();
    expect('status', (await posted).status(), 500);
    expect('heading', await text('h1'), 'Something went wrong');
    expect('message', (await text('pre')).trim(), 'No file was chosen.');
    expect('title', await page.title(), 'Something went wrong');
});

await step('7-missing-page', async () => {
    const response = await page.goto(base + 'nothere.html');
    expect('status', response.status(), 404);
    const body = await page.locator('body').textContent();
    if (!/Invalid V_PAGE value: \/nothere\.html/.test(body))
        throw new Error(`page reads ${JSON.stringify(body.trim())}`);
    expect('guestbook content', await page.locator('table').count(), 0);
});

await step('8-head', async () => {
    // the web server passes HEAD on as it comes; Vorn answers with the GET's
    // header block and no body
    const found = await fetch(front, { method: 'HEAD' });
    expect('status', found.status, 200);
    expect('content type', found.headers.get('content-type'), 'text/html; charset=utf-8');
    expect('body', (await found.text()).length, 0);
    const missing = await fetch(base + 'nothere.html', { method: 'HEAD' });
    expect('missing page', missing.status, 404);
});

await context.close();
console.log(`${server}: ${8 - failed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);
