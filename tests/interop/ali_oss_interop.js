// The official ali-oss client against a running quorvane-cloud: put, resumable multipart upload with a
// checkpoint, listParts, get and head, with bytes and CRC-64 checked here (ali-oss checks neither); then
// listing, deleting, copying, ACLs, tags, uploads in progress and bucket facts, each checking that what
// is stored is intact afterwards.
// QC_SIGNATURE=4 signs every request V4 (authorizationV4) for QC_REGION, against a cloud that refuses V1,
// and checks the refusals a user meets there.
'use strict';
const OSS = require('ali-oss');
const assert = require('assert');
const crypto = require('crypto');
const fs = require('fs');
const os = require('os');
const path = require('path');

const env = (name) => {
  const v = process.env[name];
  if (!v) throw new Error(`missing ${name}`);
  return v;
};
const endpoint = env('QC_ENDPOINT');
const root = { accessKeyId: env('QC_KEY_ID'), accessKeySecret: env('QC_KEY_SECRET') };
const bucket = env('QC_BUCKET');

// CRC-64/XZ, bytewise over a table, in BigInt: slow but independent of everything under test.
const CRC_TABLE = (() => {
  const poly = 0xC96C5795D7870F42n;
  const table = new Array(256);
  for (let n = 0n; n < 256n; n++) {
    let c = n;
    for (let k = 0; k < 8; k++) c = (c & 1n) ? (c >> 1n) ^ poly : c >> 1n;
    table[Number(n)] = c;
  }
  return table;
})();
function crc64(buf) {
  const mask = 0xFFFFFFFFFFFFFFFFn;
  let crc = mask;
  for (const byte of buf) crc = CRC_TABLE[Number((crc ^ BigInt(byte)) & 0xFFn)] ^ (crc >> 8n);
  return (crc ^ mask).toString();
}
assert.strictEqual(crc64(Buffer.from('123456789')), '11051210869376104954');

const v4 = process.env.QC_SIGNATURE === '4';
const region = process.env.QC_REGION || 'cn-shanghai';
const signing = v4 ? { authorizationV4: true, region } : {};
const client = (extra = {}) =>
  new OSS({ endpoint, bucket, sldEnable: true, secure: false, timeout: 120000, ...root, ...signing, ...extra });

async function simplePut() {
  const body = Buffer.from('hello from ali-oss');
  const res = await client().put('interop/small.txt', body);
  assert.strictEqual(res.res.status, 200);
  assert.strictEqual(res.res.headers['x-oss-hash-crc64ecma'], crc64(body));
  const got = await client().get('interop/small.txt');
  assert.ok(Buffer.from(got.content).equals(body));
  await assert.rejects(client().get('interop/absent.txt'), (e) => e.code === 'NoSuchKey' && e.status === 404);
  console.log('put/get ok');
}

async function resumableMultipart() {
  const data = crypto.randomBytes(3 * 1024 * 1024 + 512 * 1024);
  const file = path.join(os.tmpdir(), `qc-interop-${process.pid}.bin`);
  fs.writeFileSync(file, data);
  const name = 'interop/big.bin';
  const partSize = 1024 * 1024;
  const first = client();
  let checkpoint;
  // First run: stop once a part is done, keeping the checkpoint.
  await first.multipartUpload(name, file, {
    partSize, parallel: 1,
    progress: (p, cpt) => {
      checkpoint = cpt;
      if (cpt && cpt.doneParts.length >= 1) first.cancel();
    },
  }).then(() => assert.fail('upload should have been cancelled'), (e) => assert.ok(first.isCancel(), String(e)));
  assert.ok(checkpoint && checkpoint.uploadId, 'no checkpoint saved');

  const listed = await client().listParts(name, checkpoint.uploadId, { 'max-parts': 1000 });
  const parts = [].concat(listed.parts || []);
  assert.ok(parts.length >= 1 && parts.length < 4, `unexpected part count ${parts.length}`);
  assert.strictEqual(String(parts[0].Size), String(partSize));

  const second = client();
  const done = await second.multipartUpload(name, file, { partSize, parallel: 2, checkpoint });
  assert.strictEqual(done.res.status, 200);
  const head = await client().head(name);
  assert.strictEqual(Number(head.res.headers['content-length']), data.length);
  assert.strictEqual(head.res.headers['x-oss-hash-crc64ecma'], crc64(data));
  const got = await client().get(name);
  assert.ok(Buffer.from(got.content).equals(data), 'downloaded bytes differ');
  assert.strictEqual(got.res.headers['x-oss-hash-crc64ecma'], crc64(data));
  await assert.rejects(client().listParts(name, checkpoint.uploadId), (e) => e.code === 'NoSuchUpload');
  fs.unlinkSync(file);
  console.log(`multipart ok (${data.length} bytes, resumed after ${parts.length} part(s))`);
}

// STS credentials handed out by the VOD OpenAPI, used by ali-oss with stsToken.
async function stsFromVod() {
  const pct = (s) => encodeURIComponent(s).replace(/[!'()*]/g, (c) => '%' + c.charCodeAt(0).toString(16).toUpperCase());
  const params = {
    Action: 'CreateUploadVideo', Title: 'interop', FileName: 'interop.mp4', Format: 'JSON', Version: '2017-03-21',
    AccessKeyId: root.accessKeyId, SignatureMethod: 'HMAC-SHA1', SignatureVersion: '1.0',
    SignatureNonce: crypto.randomUUID(),
  };
  const query = Object.keys(params).sort().map((k) => `${pct(k)}=${pct(params[k])}`).join('&');
  const signature = crypto.createHmac('sha1', root.accessKeySecret + '&').update('GET&%2F&' + pct(query)).digest('base64');
  const res = await fetch(`${endpoint}/?${query}&Signature=${pct(signature)}`);
  const reply = await res.json();
  assert.strictEqual(res.status, 200, JSON.stringify(reply));
  const decode = (t) => JSON.parse(Buffer.from(t, 'base64').toString('utf8'));
  const address = decode(reply.UploadAddress);
  const auth = decode(reply.UploadAuth);
  const sts = new OSS({
    endpoint: address.Endpoint, bucket: address.Bucket, sldEnable: true, secure: false,
    accessKeyId: auth.AccessKeyId, accessKeySecret: auth.AccessKeySecret, stsToken: auth.SecurityToken,
    ...signing,
  });
  const body = Buffer.from('video bytes');
  const put = await sts.put(address.FileName, body);
  assert.strictEqual(put.res.headers['x-oss-hash-crc64ecma'], crc64(body));
  console.log('sts put ok');
}

// What a user of a bucket that takes only V4 meets when something is off.
async function v4Refusals() {
  const refused = (code, status) => (e) => e.code === code && e.status === status;
  await assert.rejects(client({ authorizationV4: false }).put('interop/v1.txt', Buffer.from('x')),
    refused('AccessDenied', 403), 'a V1 request must be refused');
  await assert.rejects(client({ region: region === 'cn-beijing' ? 'cn-hangzhou' : 'cn-beijing' })
    .put('interop/region.txt', Buffer.from('x')), refused('InvalidArgument', 400), 'a wrong region must be refused');
  await assert.rejects(client({ accessKeySecret: 'not-the-secret' }).head('interop/small.txt'),
    (e) => e.status === 403, 'a wrong secret must be refused');
  await assert.rejects(client({ accessKeySecret: 'not-the-secret' }).get('interop/small.txt'),
    refused('SignatureDoesNotMatch', 403));
  console.log('v4 refusals ok');
}

// Presigned URLs are checked as the service checks them: ali-oss's own V4 URL works, and only for its object.
async function presignedUrlV4() {
  const url = await client().signatureUrlV4('GET', 600, undefined, 'interop/small.txt');
  assert.ok(url.includes('x-oss-signature-version=OSS4-HMAC-SHA256'), url);
  const res = await fetch(url);
  assert.strictEqual(res.status, 200, await res.clone().text());
  assert.strictEqual(Buffer.from(await res.arrayBuffer()).toString(), 'hello from ali-oss');
  assert.strictEqual((await fetch(url.replace('small.txt', 'small.tx2'))).status, 403);
  console.log('presigned v4 ok');
}

// Stored bytes and CRC-64 of an object, to check an operation left them as they were.
async function assertIntact(name, body) {
  const got = await client().get(name);
  assert.ok(Buffer.from(got.content).equals(body), `${name}: bytes changed`);
  assert.strictEqual(got.res.headers['x-oss-hash-crc64ecma'], crc64(body), `${name}: CRC-64 changed`);
}

async function putAll(prefix, names) {
  for (const name of names) await client().put(prefix + name, Buffer.from(`body of ${name}`));
}

async function listing() {
  const p = 'interop/list/';
  await putAll(p, ['a.txt', 'b c+d.txt', 'dir/1', 'dir/2', 'dir/sub/3', '视频.mp4']);
  const top = await client().list({ prefix: p, delimiter: '/', 'max-keys': 100 });
  assert.deepStrictEqual(top.objects.map((o) => o.name), [p + 'a.txt', p + 'b c+d.txt', p + '视频.mp4']);
  assert.deepStrictEqual(top.prefixes, [p + 'dir/']);
  assert.strictEqual(top.objects[1].size, Buffer.byteLength('body of b c+d.txt'));
  let names = [];
  let marker;
  do {
    // ali-oss's V4 signer signs a parameter given as undefined, which its URL leaves out: give only set ones.
    const page = await client().list({ prefix: p, 'max-keys': 4, ...(marker ? { marker } : {}) });
    names = names.concat(page.objects.map((o) => o.name));
    marker = page.nextMarker;
    assert.strictEqual(page.isTruncated, Boolean(marker));
  } while (marker);
  assert.strictEqual(names.length, 6);
  assert.strictEqual(new Set(names).size, 6);
  console.log('list ok');
}

async function listingV2() {
  const p = 'interop/list/';
  let names = [];
  let token;
  let pages = 0;
  do {
    const page = await client().listV2({
      prefix: p, 'max-keys': 2, 'fetch-owner': true, ...(token ? { 'continuation-token': token } : {}),
    });
    assert.strictEqual(Number(page.keyCount), page.objects.length);
    assert.ok(page.objects.every((o) => o.owner && o.owner.id), 'fetch-owner must give owners');
    names = names.concat(page.objects.map((o) => o.name));
    token = page.nextContinuationToken;
    pages += 1;
  } while (token);
  assert.strictEqual(pages, 3);
  assert.strictEqual(names.length, 6);
  const grouped = await client().listV2({ prefix: p + 'dir/', delimiter: '/', 'start-after': p + 'dir/1' });
  assert.deepStrictEqual(grouped.objects.map((o) => o.name), [p + 'dir/2']);
  assert.deepStrictEqual(grouped.prefixes, [p + 'dir/sub/']);
  console.log('listV2 ok');
}

async function deleting() {
  const p = 'interop/del/';
  const keep = Buffer.from('keep me');
  await client().put(p + 'keep', keep);
  await putAll(p, ['one', 'two', 'three', 'a b+c', 'four']);
  assert.strictEqual((await client().delete(p + 'one')).res.status, 204);
  assert.strictEqual((await client().delete(p + 'never-there')).res.status, 204);
  const verbose = await client().deleteMulti([p + 'two', p + 'a b+c', p + 'missing']);
  const deleted = [].concat(verbose.deleted || []).map((d) => (typeof d === 'string' ? d : d.Key)).sort();
  assert.deepStrictEqual(deleted, [p + 'a b+c', p + 'missing', p + 'two']);
  const quiet = await client().deleteMulti([p + 'three', p + 'four'], { quiet: true });
  assert.strictEqual(quiet.res.status, 200);
  assert.ok(!quiet.deleted || quiet.deleted.length === 0, 'quiet mode lists nothing');
  const left = await client().list({ prefix: p });
  assert.deepStrictEqual(left.objects.map((o) => o.name), [p + 'keep']);
  await assertIntact(p + 'keep', keep);
  console.log('delete/deleteMulti ok');
}

async function copying() {
  const src = 'interop/copy/src.bin';
  const body = crypto.randomBytes(200 * 1024);
  await client().put(src, body, { meta: { origin: 'first' } });
  const same = await client().copy('interop/copy/same.bin', src);
  assert.strictEqual(same.res.status, 200);
  assert.ok(same.data && same.data.etag && same.data.lastModified, 'CopyObjectResult has ETag and LastModified');
  await assertIntact('interop/copy/same.bin', body);
  assert.strictEqual((await client().head('interop/copy/same.bin')).meta.origin, 'first');
  const replaced = await client().copy('interop/copy/replaced.bin', src, { meta: { origin: 'second' } });
  assert.strictEqual(replaced.res.status, 200);
  assert.strictEqual((await client().head('interop/copy/replaced.bin')).meta.origin, 'second');
  const other = `${bucket}-copies`;
  await client().putBucket(other);
  await client({ bucket: other }).copy('from-another-bucket.bin', src, bucket);
  await client().delete(src);
  await assertIntact('interop/copy/replaced.bin', body);  // copies own their bytes
  const across = await client({ bucket: other }).get('from-another-bucket.bin');
  assert.ok(Buffer.from(across.content).equals(body), 'copy into another bucket differs');
  assert.strictEqual(across.res.headers['x-oss-hash-crc64ecma'], crc64(body));
  await assert.rejects(client().copy('interop/copy/none.bin', src), (e) => e.status === 404);
  console.log('copy ok');
}

async function aclAndTags() {
  const name = 'interop/admin/obj.txt';
  const body = Buffer.from('an object with an ACL and tags');
  await client().put(name, body);
  assert.strictEqual((await client().getACL(name)).acl, 'default');
  await client().putACL(name, 'public-read');
  assert.strictEqual((await client().getACL(name)).acl, 'public-read');
  await assertIntact(name, body);
  await client().putObjectTagging(name, { project: 'quorvane', 'a b': 'c+d' });
  assert.deepStrictEqual((await client().getObjectTagging(name)).tag, { project: 'quorvane', 'a b': 'c+d' });
  await assertIntact(name, body);
  await client().deleteObjectTagging(name);
  assert.deepStrictEqual((await client().getObjectTagging(name)).tag, {});
  await assertIntact(name, body);
  console.log('acl/tagging ok');
}

async function uploadsAndBucket() {
  const name = 'interop/uploads/pending.bin';
  const started = await client().initMultipartUpload(name);
  const listed = await client().listUploads({ prefix: 'interop/uploads/', 'max-uploads': 10 });
  assert.deepStrictEqual(listed.uploads.map((u) => [u.name, u.uploadId]), [[name, started.uploadId]]);
  await client().abortMultipartUpload(name, started.uploadId);
  assert.strictEqual((await client().listUploads({ prefix: 'interop/uploads/' })).uploads.length, 0);
  const info = await client().getBucketInfo(bucket);
  assert.strictEqual(info.bucket.Name, bucket);
  assert.ok(info.bucket.CreationDate, 'bucket info has a creation date');
  const location = await client().getBucketLocation(bucket);
  assert.strictEqual(location.location, `oss-${region}`);
  console.log('listUploads/getBucketInfo/getBucketLocation ok');
}

const cases = [simplePut, resumableMultipart, stsFromVod, listing, listingV2, deleting, copying, aclAndTags,
  uploadsAndBucket];
if (v4) cases.push(v4Refusals, presignedUrlV4);

(async () => {
  for (const run of cases) await run();
  console.log(`interop ok: ${cases.length} cases (V${v4 ? 4 : 1} signatures)`);
})().catch((e) => {
  console.error('interop FAILED:', e);
  process.exit(1);
});
