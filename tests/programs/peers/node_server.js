// A backend on Node's http: node_server.js HOST PORT.
'use strict';

const [host, port] = process.argv.slice(2);
const TYPE = 'application/QUBA_CT_KoruCertificateResponse_v2+proto';
// A certificate response that holds "peer" as the chain.
const ANSWER = '\n\x04peer';

function accept(request, response) {
  const length = request.url === '/unsized' ? {} : {'Content-Length': ANSWER.length};
  response.writeContinue();
  request.on('end', () => {
    response.writeHead(200, {'Content-Type': TYPE, ...length});
    response.write(ANSWER);
    response.end();
  });
  request.resume();
}

const server = require('http').createServer();
server.on('checkContinue', (request, response) => {
  if (Number(request.headers['content-length']) > 65536) {
    response.writeHead(413).end();
  } else if (request.url === '/forbidden') {
    response.writeHead(403).end();
  } else if (request.url === '/close') {
    request.socket.destroy();
  } else {
    setTimeout(accept, request.url === '/late' ? 500 : 0, request, response);
  }
});
server.listen(port, host);
