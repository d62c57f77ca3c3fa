// The browser test of the demo: Debian's Chromium, headless, opens the search
// page that scripts/demo serves, searches the catalogue, checks the result
// page (the number of records, a highlighted word, the next page) and saves a
// screenshot of it. Then it searches the periodicals and lists the articles
// of one issue, checking that the library's own sheets lay them out within a
// phone's width, and saves a screenshot of the articles (CAPTURA with
// "-articulos" before ".png"). While the gateway does not answer those
// collections yet, that part prints "pendiente" and does not fail. Last it
// opens the copies of a record, saves a screenshot of them ("-disponibilidad")
// and reserves the first copy that can be reserved.
//
//   node tests/navegador/busqueda.mjs URL CAPTURA.png [PALABRA]
//
// Exits 0 when every check passed; each failure is printed.

import { chromium } from 'playwright-core';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

const [url, captura, palabra = 'mexico'] = process.argv.slice(2);
if (!url || !captura) {
  console.error('uso: node busqueda.mjs URL CAPTURA.png [PALABRA]');
  process.exit(2);
}

// Chromium looks for no update, sync or other service of its own: the
// machine has no network beyond its own addresses.
const perfil = mkdtempSync(join(tmpdir(), 'orvex-chromium-'));
const navegador = await chromium.launchPersistentContext(perfil, {
  executablePath: process.env.ORVEX_CHROMIUM || '/usr/bin/chromium',
  headless: true,
  args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
         '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  viewport: { width: 390, height: 844 },  // a phone
});

const fallos = [];
const comprueba = (bien, que) => {
  console.log(`${bien ? 'bien ' : 'FALLO'} ${que}`);
  if (!bien) fallos.push(que);
};
const sinAcentos = (t) => t.normalize('NFD').replace(/[\u0300-\u036f]/g, '').toLowerCase();

try {
  const pagina = navegador.pages()[0] ?? await navegador.newPage();
  await pagina.goto(url, { waitUntil: 'load' });
  comprueba((await pagina.title()).includes('logo'), 'la página de búsqueda carga');
  comprueba(await pagina.getByLabel(/Palabras del t/).isVisible(), 'el campo de búsqueda tiene su etiqueta');

  // Three records a page, so that a small catalogue has a second page.
  await pagina.fill('#txtLIB', palabra);
  await pagina.evaluate(() => { document.querySelector('input[name=Cantidad]').value = '3'; });
  await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }),
                     pagina.click('button[type=submit]')]);

  const total = Number((await pagina.textContent('#total')) ?? '0');
  comprueba(total > 3, `la página de resultados cuenta ${total} fichas`);
  const resumen = (await pagina.textContent('#resumen')) ?? '';
  comprueba(resumen.includes('de la 1 a la 3'), `la primera página muestra de la 1 a la 3 ("${resumen.trim()}")`);
  const resaltadas = await pagina.$$eval('font[color="#0000ff"] b', (bs) => bs.map((b) => b.textContent));
  comprueba(resaltadas.some((t) => sinAcentos(t) === palabra),
            `la palabra buscada está resaltada (${resaltadas.slice(0, 3).join(', ')})`);
  comprueba((await pagina.$$('article.ficha')).length === 3, 'la página muestra tres fichas');

  await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }),
                     pagina.getByRole('button', { name: /Siguientes/ }).first().click()]);
  const siguiente = (await pagina.textContent('#resumen')) ?? '';
  comprueba(siguiente.includes('de la 4 a la'), `el enlace a la página siguiente funciona ("${siguiente.trim()}")`);
  await pagina.screenshot({ path: captura, fullPage: true });
  console.log(`captura: ${captura}`);

  // Periodicals and articles, each result through the library's own sheet.
  const pendiente = async () => {
    const texto = (await pagina.textContent('body')) ?? '';
    if (!texto.includes('disponible en esta versi')) return false;
    console.log('pendiente: esta versión de Orvex aún no responde revistas ni artículos');
    return true;
  };
  const cabeEnElTelefono = () => pagina.evaluate(
    () => document.documentElement.scrollWidth <= window.innerWidth);

  await pagina.goto(new URL('revistas.html', url).href, { waitUntil: 'load' });
  comprueba(await pagina.getByLabel('Editorial o lugar de publicación').isVisible(),
            'la página de revistas tiene el campo de la editorial');
  await pagina.fill('#txtLIB', 'mexico');
  await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }),
                     pagina.click('button[type=submit]')]);
  if (!await pendiente()) {
    const revistas = Number((await pagina.textContent('#total')) ?? '0');
    const mostradas = (await pagina.$$('.ppRev')).length;
    comprueba(revistas > 0 && mostradas === Math.min(revistas, 10),
              `la búsqueda de revistas muestra ${mostradas} de ${revistas}`);
    comprueba(await pagina.locator('.ppRev dt', { hasText: 'ISSN' }).first().isVisible(),
              'la hoja de revistas rotula el ISSN');
    comprueba(await cabeEnElTelefono(), 'las revistas caben a lo ancho del teléfono');

    await pagina.goto(new URL('articulos.html', url).href, { waitUntil: 'load' });
    await pagina.fill('#txtNumadqui', 'P001203');
    await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }),
                       pagina.click('#numero button[type=submit]')]);
    const articulos = (await pagina.$$('.ppAna')).length;
    const total = (await pagina.textContent('#total')) ?? '';
    comprueba(articulos === 4 && total === '4',
              `el número P001203 lista ${articulos} artículos (total ${total})`);
    // The summary comes from the page's last section and is shown first.
    const resumen = await pagina.locator('#resumen').boundingBox();
    const primero = await pagina.locator('.regPP').first().boundingBox();
    comprueba(resumen !== null && primero !== null && resumen.y < primero.y,
              'el resumen aparece antes de los artículos');
    comprueba(await cabeEnElTelefono(), 'los artículos caben a lo ancho del teléfono');
    const capturaArticulos = captura.replace(/(\.png)?$/, '-articulos.png');
    await pagina.screenshot({ path: capturaArticulos, fullPage: true });
    console.log(`captura: ${capturaArticulos}`);
  }

  // A record's copies and the reservation of one, through the circulation
  // server beside the site (skipped when the records offer no availability).
  await pagina.goto(url, { waitUntil: 'load' });
  await pagina.fill('#txtLIB', 'quijote');
  await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }),
                     pagina.click('button[type=submit]')]);
  const enlace = pagina.locator('p.disp a').first();
  if (await enlace.count() === 0) {
    console.log('pendiente: las fichas no ofrecen disponibilidad (sin servidor de circulación)');
  } else {
    await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }), enlace.click()]);
    const filas = await pagina.$$('#ejemplares tbody tr');
    const total = (await pagina.textContent('#total')) ?? '';
    comprueba(filas.length > 0 && String(filas.length) === total,
              `la disponibilidad lista ${filas.length} ejemplares (total ${total})`);
    comprueba(await cabeEnElTelefono(), 'la disponibilidad cabe a lo ancho del teléfono');
    const capturaDisponibilidad = captura.replace(/(\.png)?$/, '-disponibilidad.png');
    await pagina.screenshot({ path: capturaDisponibilidad, fullPage: true });
    console.log(`captura: ${capturaDisponibilidad}`);
    const reservar = pagina.getByRole('button', { name: 'Reservar' }).first();
    comprueba(await reservar.count() > 0, 'algún ejemplar se puede reservar');
    await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }), reservar.click()]);
    comprueba(await pagina.getByLabel('Número de cuenta del lector').isVisible(),
              'la página de reserva pide la cuenta del lector');
    await pagina.fill('#NumCta', 'L-2041');
    await pagina.fill('#PWD', 'secreta');
    await Promise.all([pagina.waitForNavigation({ waitUntil: 'load' }),
                       pagina.click('button[type=submit]')]);
    const respuesta = ((await pagina.textContent('#reserva')) ?? '').trim();
    comprueba(respuesta === 'Reserva exitosa', `la reserva queda registrada ("${respuesta}")`);
  }
} catch (error) {
  comprueba(false, `el navegador: ${error.message.split('\n')[0]}`);
} finally {
  await navegador.close();
  rmSync(perfil, { recursive: true, force: true });
}
process.exit(fallos.length === 0 ? 0 : 1);
