<?xml version="1.0"?>
<!--
  The demo library's own sheet for periodicals: the gateway shows each
  periodical found by ACERVO=REVISTAS through it (the <!FICHA3!> of the
  FORMATO section of revistas.cfg). It reads the periodical document

    <ficha><Numero>12</Numero><ETIQUETAS><m022>...</m022><m245>...</m245>
    ...</ETIQUETAS></ficha>

  with one element "m" + tag per occurrence of every field, in the record's
  order, and writes an HTML fragment: the title as a heading, then every
  field as a term and its values in a description list (repeated fields under
  one term), the control fields folded away at the end. Usual tags get a
  Spanish label, any other "Campo NNN". The page's own style sheet lays it
  out. Class names are not Spanish words, so that the highlighting of the
  searched words never lands inside a tag.

  Plain XSLT 1.0. The file is ASCII: accented letters are character
  references, whatever code page the gateway reads it in.
-->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html"/>

  <xsl:template match="/">
    <xsl:apply-templates select="ficha"/>
  </xsl:template>

  <xsl:template match="ficha">
    <xsl:variable name="titulo" select="ETIQUETAS/m245[1]"/>
    <div class="ppRev">
      <h2 class="ppTit">
        <xsl:choose>
          <xsl:when test="normalize-space($titulo)"><xsl:value-of select="$titulo"/></xsl:when>
          <xsl:otherwise>[Revista sin t&#237;tulo]</xsl:otherwise>
        </xsl:choose>
      </h2>
      <dl class="ppDl">
        <!-- Every data field but the title already shown, in record order. -->
        <xsl:apply-templates select="ETIQUETAS/*[not(starts-with(local-name(), 'm00'))]
                                     [generate-id() != generate-id($titulo)]" mode="campo"/>
        <dt class="ppNum">N&#250;mero de revista</dt>
        <dd class="ppNum"><xsl:value-of select="Numero"/></dd>
      </dl>
      <xsl:if test="ETIQUETAS/*[starts-with(local-name(), 'm00')]">
        <details class="ppCtl">
          <summary>Datos de control</summary>
          <dl class="ppDl">
            <xsl:apply-templates select="ETIQUETAS/*[starts-with(local-name(), 'm00')]"
                                 mode="campo"/>
          </dl>
        </details>
      </xsl:if>
    </div>
  </xsl:template>

  <!-- One occurrence: its term when the field before it in the list is
       another one, then its value. -->
  <xsl:template match="*" mode="campo">
    <xsl:variable name="anterior" select="preceding-sibling::*[1]"/>
    <xsl:if test="not($anterior) or local-name($anterior) != local-name()
                  or generate-id($anterior) = generate-id(../m245[1])">
      <dt>
        <xsl:call-template name="etiqueta">
          <xsl:with-param name="tag" select="substring(local-name(), 2)"/>
        </xsl:call-template>
      </dt>
    </xsl:if>
    <dd>
      <xsl:call-template name="valor">
        <xsl:with-param name="tag" select="substring(local-name(), 2)"/>
      </xsl:call-template>
    </dd>
  </xsl:template>

  <!-- An electronic location ("address;text") becomes a link. -->
  <xsl:template name="valor">
    <xsl:param name="tag"/>
    <xsl:choose>
      <xsl:when test="$tag = '856' and contains(., ';')">
        <a href="{substring-before(., ';')}" target="_blank" rel="noopener">
          <xsl:value-of select="substring-after(., ';')"/>
        </a>
      </xsl:when>
      <xsl:when test="$tag = '856'">
        <a href="{.}" target="_blank" rel="noopener"><xsl:value-of select="."/></a>
      </xsl:when>
      <xsl:otherwise><xsl:value-of select="."/></xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <xsl:template name="etiqueta">
    <xsl:param name="tag"/>
    <xsl:choose>
      <xsl:when test="$tag = '001'">N&#250;mero de control</xsl:when>
      <xsl:when test="$tag = '003'">Origen del n&#250;mero de control</xsl:when>
      <xsl:when test="$tag = '005'">&#218;ltima modificaci&#243;n</xsl:when>
      <xsl:when test="$tag = '008'">Datos fijos</xsl:when>
      <xsl:when test="$tag = '010'">N&#250;mero de la Biblioteca del Congreso</xsl:when>
      <xsl:when test="$tag = '020'">ISBN</xsl:when>
      <xsl:when test="$tag = '022'">ISSN</xsl:when>
      <xsl:when test="$tag = '030'">CODEN</xsl:when>
      <xsl:when test="$tag = '040'">Fuente de la catalogaci&#243;n</xsl:when>
      <xsl:when test="$tag = '041'">Idioma</xsl:when>
      <xsl:when test="$tag = '050' or $tag = '082' or $tag = '090'">Clasificaci&#243;n</xsl:when>
      <xsl:when test="$tag = '100'">Autor</xsl:when>
      <xsl:when test="$tag = '110'">Autor corporativo</xsl:when>
      <xsl:when test="$tag = '111'">Congreso</xsl:when>
      <xsl:when test="$tag = '130' or $tag = '240'">T&#237;tulo uniforme</xsl:when>
      <xsl:when test="$tag = '210'">T&#237;tulo abreviado</xsl:when>
      <xsl:when test="$tag = '222'">T&#237;tulo clave</xsl:when>
      <xsl:when test="$tag = '245'">T&#237;tulo</xsl:when>
      <xsl:when test="$tag = '246'">Otro t&#237;tulo</xsl:when>
      <xsl:when test="$tag = '250'">Edici&#243;n</xsl:when>
      <xsl:when test="$tag = '260' or $tag = '264'">Pie de imprenta</xsl:when>
      <xsl:when test="$tag = '300'">Descripci&#243;n f&#237;sica</xsl:when>
      <xsl:when test="$tag = '310'">Periodicidad</xsl:when>
      <xsl:when test="$tag = '321'">Periodicidad anterior</xsl:when>
      <xsl:when test="$tag = '362'">Fechas de publicaci&#243;n</xsl:when>
      <xsl:when test="$tag = '440' or $tag = '490'">Serie</xsl:when>
      <xsl:when test="$tag = '500'">Nota</xsl:when>
      <xsl:when test="$tag = '504'">Bibliograf&#237;a</xsl:when>
      <xsl:when test="$tag = '505'">Contenido</xsl:when>
      <xsl:when test="$tag = '520'">Resumen</xsl:when>
      <xsl:when test="$tag = '546'">Nota de idioma</xsl:when>
      <xsl:when test="$tag = '600' or $tag = '610' or $tag = '611' or $tag = '630'
                      or $tag = '650' or $tag = '651'">Materia</xsl:when>
      <xsl:when test="$tag = '653'">Palabras clave</xsl:when>
      <xsl:when test="$tag = '700'">Autor secundario</xsl:when>
      <xsl:when test="$tag = '710'">Entidad secundaria</xsl:when>
      <xsl:when test="$tag = '711'">Congreso secundario</xsl:when>
      <xsl:when test="$tag = '773'">En</xsl:when>
      <xsl:when test="$tag = '780'">Contin&#250;a a</xsl:when>
      <xsl:when test="$tag = '785'">Continuada por</xsl:when>
      <xsl:when test="$tag = '852'">Ubicaci&#243;n</xsl:when>
      <xsl:when test="$tag = '856'">Recurso electr&#243;nico</xsl:when>
      <xsl:when test="$tag = '866'">Existencias</xsl:when>
      <xsl:otherwise>Campo <xsl:value-of select="$tag"/></xsl:otherwise>
    </xsl:choose>
  </xsl:template>
</xsl:stylesheet>
